/// The features of a camera as its GenApi description tells them.
#pragma once

#include "gentl/IRegisterPort.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <pugixml.hpp>

namespace Tool {

/// Owns the parsed document; borrows the port. Every operation throws Failure: what() then names the feature
/// and the chain of nodes behind it down to the one that can't be resolved.
///
/// Resolves the integer side of the node model: Integer, Boolean, Enumeration, Command, IntReg, MaskedIntReg,
/// StructEntry, IntSwissKnife and IntConverter. Floats, strings, chunk data, selectors' invalidation and
/// access conditions are left alone: values always come from the camera.
class Description
{
public:
    Description(std::string_view xml, IRegisterPort& port);

    bool Has(const std::string& feature) const;
    std::int64_t GetInteger(const std::string& feature);
    void SetInteger(const std::string& feature, std::int64_t value);
    /// The entry's name, such as "Mono8".
    std::string GetEnumeration(const std::string& feature);
    void SetEnumeration(const std::string& feature, const std::string& entry);
    void Execute(const std::string& command);

private:
    /// Where a register lies and how its bytes make a value.
    struct Register
    {
        std::uint64_t address;
        std::size_t length;  ///< bytes, 1 to 8
        bool isBigEndian;
        bool isSigned;
        unsigned lowBit;  ///< of the value, counted from its least significant one
        unsigned highBit;
    };

    template <typename Action>
    auto Resolve(const std::string& feature, Action action);
    void Index(pugi::xml_node description);
    pugi::xml_node Find(const std::string& name) const;
    std::int64_t Value(const std::string& name);
    void SetValue(const std::string& name, std::int64_t value);
    std::int64_t ValueOf(pugi::xml_node node);
    void SetValueOf(pugi::xml_node node, std::int64_t value);
    /// The child with a number, or with the name of the node that has it, that the index of the node selects.
    pugi::xml_node IndexedChild(pugi::xml_node node);
    /// The number in the child of this name, or in the node that the child with a p before the name refers
    /// to.
    std::int64_t Number(pugi::xml_node node, const std::string& child);
    /// given is the value of the one variable that the node doesn't define itself; its name may be empty.
    std::int64_t Formula(pugi::xml_node node,
                         const std::string& formula,
                         const std::string& givenName = {},
                         std::int64_t given = 0);
    std::int64_t Variable(pugi::xml_node node, const std::string& name);

    Register Locate(pugi::xml_node node);
    std::uint64_t Address(pugi::xml_node node);
    std::uint64_t ReadRaw(const Register& where);
    std::int64_t ReadRegister(pugi::xml_node node);
    void WriteRegister(pugi::xml_node node, std::int64_t value);
    /// Before each nested step: keeps references in a circle, or too many of them, from running on for ever.
    void Enter(const std::string& name);

    pugi::xml_document m_document;
    IRegisterPort& m_port;
    std::map<std::string, pugi::xml_node> m_nodes;
    /// What was written to nodes that hold their value themselves.
    std::map<std::string, std::int64_t> m_ownValues;
    /// Names of the nodes that are being resolved, outermost first; after a failure down to the node that
    /// failed.
    std::vector<std::string> m_path;
    unsigned m_steps = 0;  ///< of the present operation
};

}  // namespace Tool
