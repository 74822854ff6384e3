/// The formulas of GenApi descriptions.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace Tool {

/// Gives the value of a variable. Throws Failure when there is none of this name.
template <typename Number>
using VariableLookup = std::function<Number(const std::string& name)>;

/// Evaluates the formula; Number is std::int64_t, whose arithmetic wraps, or double, where bit operators
/// round their operands first. The branch of a ?: that isn't taken is read but not evaluated. Throws Failure
/// for what it can't read (such as 1.5 in an integer formula), for a division by 0 and for a result that
/// isn't finite.
template <typename Number>
Number EvaluateFormula(const std::string& formula, const VariableLookup<Number>& lookup);

extern template std::int64_t EvaluateFormula(const std::string&, const VariableLookup<std::int64_t>&);
extern template double EvaluateFormula(const std::string&, const VariableLookup<double>&);

}  // namespace Tool
