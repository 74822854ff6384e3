/// The integer formulas of GenApi descriptions.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace Tool {

/// Gives the value of a variable. Throws Failure when there is none of this name.
using VariableLookup = std::function<std::int64_t(const std::string& name)>;

/// Evaluates the formula in 64-bit arithmetic that wraps. The branch of a ?: that isn't taken is read but not
/// evaluated. Throws Failure for what it can't read (such as a floating point number) and for a division by
/// 0.
std::int64_t EvaluateFormula(const std::string& formula, const VariableLookup& lookup);

}  // namespace Tool
