/// The features of a camera or module as its GenApi description tells them.
#pragma once

#include "gentl/IRegisterPort.h"
#include "gentl/RegisterField.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <pugixml.hpp>

namespace Tool {

/// Owns the parsed document; borrows the port. Every operation throws Failure: what() then names the feature
/// and the chain of nodes behind it down to the one that can't be resolved.
///
/// Resolves Integer, Float, Boolean, Enumeration, Command, IntReg, MaskedIntReg, StructEntry, FloatReg, the
/// formulas (Int)SwissKnife and (Int)Converter, and strings. Each node counts in integers or in real numbers;
/// between nodes of both kinds values are rounded. Chunk data and selectors' invalidation are left alone:
/// values always come from the port.
class Description
{
public:
    Description(std::string_view xml, IRegisterPort& port);

    bool Has(const std::string& feature) const;
    std::int64_t GetInteger(const std::string& feature);
    void SetInteger(const std::string& feature, std::int64_t value);
    double GetFloat(const std::string& feature);
    /// Refuses a value beyond the feature's Min or Max.
    void SetFloat(const std::string& feature, double value);
    /// The entry's name, such as "Mono8".
    std::string GetEnumeration(const std::string& feature);
    /// Refuses an entry that isn't available.
    void SetEnumeration(const std::string& feature, const std::string& entry);
    void Execute(const std::string& command);
    bool GetBoolean(const std::string& feature);
    void SetBoolean(const std::string& feature, bool isOn);
    /// Up to the first zero byte.
    std::string GetString(const std::string& feature);
    /// Fills the rest of the register with zeros; a text that leaves no room for one is refused.
    void SetString(const std::string& feature, const std::string& text);

    /// "Category", "Integer", "Float", "Boolean", "Enumeration", "Command" or "String"; a kind that this
    /// program can't read is called as in the description.
    std::string Kind(const std::string& feature) const;
    /// Such as "IPV4Address"; empty when the description doesn't say.
    std::string Representation(const std::string& feature) const;
    /// Such as "Hz"; empty when the description doesn't say.
    std::string Unit(const std::string& feature) const;
    /// What the category lists, other categories included.
    std::vector<std::string> Features(const std::string& category) const;
    /// Those that are available now.
    std::vector<std::string> Entries(const std::string& enumeration);
    /// Whether the feature and all that its value comes from say so.
    bool IsAvailable(const std::string& feature);
    /// "RO", "WO" or "RW": what the register behind the feature allows and nothing on the way to it forbids.
    std::string Access(const std::string& feature);

private:
    template <typename Action>
    auto Resolve(const std::string& feature, Action action);
    void Index(pugi::xml_node description);
    pugi::xml_node Find(const std::string& name) const;
    std::string AccessOf(pugi::xml_node node);
    /// Implemented and available: the node, or an entry of an enumeration, and the nodes behind it.
    bool IsPresent(pugi::xml_node node);
    bool IsOn(pugi::xml_node node);
    /// Of a reference such as pIsAvailable.
    bool Holds(pugi::xml_node node, const char* condition, bool isDefault);
    template <typename T>
    T Value(const std::string& name);
    template <typename T>
    void SetValue(const std::string& name, T value);
    /// These two convert between the number asked for and the kind that the node counts in.
    template <typename T>
    T ValueOf(pugi::xml_node node);
    template <typename T>
    void SetValueOf(pugi::xml_node node, T value);
    template <typename T>
    T OwnKindValueOf(pugi::xml_node node);
    template <typename T>
    void SetOwnKindValueOf(pugi::xml_node node, T value);
    void CheckRange(pugi::xml_node node, double value);
    /// The child with a number, or with the name of the node that has it, that the index of the node selects.
    pugi::xml_node IndexedChild(pugi::xml_node node);
    /// The number in the child of this name, or in the node that the child with a p before the name refers
    /// to.
    template <typename T>
    T Number(pugi::xml_node node, const std::string& child);
    /// given is the value of the one variable that the node doesn't define itself; its name may be empty.
    template <typename T>
    T Formula(pugi::xml_node node,
              const std::string& formula,
              const std::string& givenName = {},
              T given = 0);
    template <typename T>
    T Variable(pugi::xml_node node, const std::string& name);

    RegisterField Locate(pugi::xml_node node);
    /// The address and length of a string's register.
    std::pair<std::uint64_t, std::size_t> LocateText(pugi::xml_node node);
    /// The length in bytes, not more than the most.
    std::size_t Length(pugi::xml_node node, std::int64_t most);
    std::uint64_t Address(pugi::xml_node node);
    template <typename T>
    void WriteRegister(pugi::xml_node node, T value);
    /// Before each nested step: notes its name, and refuses references in a circle.
    void Push(const std::string& name);
    /// The node of this name, for a step into it.
    pugi::xml_node Enter(const std::string& name);
    /// Refuses what would take for ever. A step is work of about a microsecond.
    void Charge(std::size_t steps);
    /// For a look through the node's children.
    void ChargeSearch(pugi::xml_node node);

    pugi::xml_document m_document;
    IRegisterPort& m_port;
    std::map<std::string, pugi::xml_node> m_nodes;
    /// What was written to nodes that hold their value themselves.
    std::map<std::string, std::variant<std::int64_t, double>> m_ownValues;
    /// Names of the nodes that are being resolved, outermost first; after a failure down to the node that
    /// failed.
    std::vector<std::string> m_path;
    std::size_t m_steps = 0;      ///< of all operations
    std::size_t m_mostSteps = 0;  ///< at the end of the present one
};

}  // namespace Tool
