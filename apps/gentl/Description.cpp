#include "gentl/Description.h"

#include "gentl/Failure.h"
#include "gentl/Formula.h"
#include "gentl/Numbers.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <type_traits>

namespace Tool {
namespace {

constexpr std::size_t kDeepest = 40;
constexpr std::size_t kMostSteps = 50000;                 // of one operation
constexpr std::size_t kMostStepsInAll = 40 * kMostSteps;  // a listing is many operations
constexpr std::size_t kBytesPerStep = 8;
constexpr std::size_t kChildrenPerStep = 16;
constexpr std::size_t kLongestFormula = 1 << 16;
constexpr std::int64_t kLongestText = 1 << 20;
constexpr char kRoot[] = "RegisterDescription";

bool IsOneOf(const char* text, std::initializer_list<const char*> candidates)
{
    return std::any_of(candidates.begin(), candidates.end(),
                       [text](const char* c) { return std::strcmp(text, c) == 0; });
}

bool HoldsOrRefers(pugi::xml_node node)
{
    return IsOneOf(node.name(), {"Integer", "Float", "Boolean", "Enumeration", "Command"});
}

bool IsRegister(pugi::xml_node node)
{
    return IsOneOf(node.name(), {"IntReg", "FloatReg", "MaskedIntReg", "StructEntry"});
}

bool IsFormula(pugi::xml_node node)
{
    return IsOneOf(node.name(), {"IntSwissKnife", "SwissKnife"});
}

bool IsConverter(pugi::xml_node node)
{
    return IsOneOf(node.name(), {"IntConverter", "Converter"});
}

/// Whether the node itself counts in real numbers.
bool IsReal(pugi::xml_node node)
{
    return IsOneOf(node.name(), {"Float", "FloatReg", "SwissKnife", "Converter"});
}

template <typename To, typename From>
To Converted(From value)
{
    if constexpr (std::is_integral_v<To> && std::is_floating_point_v<From>) {
        return Rounded(value);
    } else {
        return static_cast<To>(value);
    }
}

template <typename Number>
Number Parse(const std::string& text)
{
    if constexpr (std::is_integral_v<Number>) {
        return ParseInteger(text);
    } else {
        return ParseReal(text);
    }
}

std::string TextOf(pugi::xml_node node)
{
    const std::string text = node.child_value();
    const std::size_t begin = text.find_first_not_of(" \t\r\n");
    return begin == std::string::npos ? std::string()
                                      : text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

/// The child of a register node; what a StructEntry doesn't say itself its StructReg says.
pugi::xml_node RegisterChild(pugi::xml_node node, const char* child)
{
    const pugi::xml_node own = node.child(child);
    return own || std::strcmp(node.name(), "StructEntry") != 0 ? own : node.parent().child(child);
}

/// The node of a register that has its address, length and port.
pugi::xml_node Frame(pugi::xml_node node)
{
    return std::strcmp(node.name(), "StructEntry") == 0 ? node.parent() : node;
}

std::string Join(const std::vector<std::string>& path)
{
    std::string text;
    for (const std::string& name : path) {
        text += (text.empty() ? "" : " -> ") + name;
    }
    return text;
}

}  // namespace

Description::Description(std::string_view xml, IRegisterPort& port) : m_port(port)
{
    const pugi::xml_parse_result result = m_document.load_buffer(xml.data(), xml.size());
    if (!result) {
        throw Failure("the description isn't XML: " + std::string(result.description()) + " at its byte " +
                      std::to_string(result.offset));
    }
    const pugi::xml_node root = m_document.child(kRoot);
    if (!root) {
        throw Failure(std::string("the description has no element ") + kRoot);
    }
    Index(root);
}

void Description::Index(pugi::xml_node description)
{
    std::vector<pugi::xml_node> groups{description};
    while (!groups.empty()) {
        const pugi::xml_node group = groups.back();
        groups.pop_back();
        for (const pugi::xml_node node : group.children()) {
            if (IsOneOf(node.name(), {"Group", "StructReg"})) {
                groups.push_back(node);
            } else if (const pugi::xml_attribute name = node.attribute("Name")) {
                m_nodes.emplace(name.value(), node);
            }
        }
    }
}

template <typename Action>
auto Description::Resolve(const std::string& feature, Action action)
{
    m_path.clear();
    m_mostSteps = std::min(m_steps + kMostSteps, kMostStepsInAll);
    try {
        return action(Enter(feature));
    } catch (const Failure& failure) {
        throw Failure("can't resolve " + Join(m_path) + ": " + failure.what(), failure.Hint(),
                      failure.Details());
    }
}

bool Description::Has(const std::string& feature) const
{
    return m_nodes.count(feature) != 0;
}

std::int64_t Description::GetInteger(const std::string& feature)
{
    return Resolve(feature, [this](pugi::xml_node node) { return ValueOf<std::int64_t>(node); });
}

void Description::SetInteger(const std::string& feature, std::int64_t value)
{
    Resolve(feature, [this, value](pugi::xml_node node) { SetValueOf(node, value); });
}

double Description::GetFloat(const std::string& feature)
{
    return Resolve(feature, [this](pugi::xml_node node) { return ValueOf<double>(node); });
}

void Description::SetFloat(const std::string& feature, double value)
{
    Resolve(feature, [this, value](pugi::xml_node node) { SetValueOf(node, value); });
}

std::string Description::GetEnumeration(const std::string& feature)
{
    return Resolve(feature, [this](pugi::xml_node node) {
        const auto value = ValueOf<std::int64_t>(node);
        for (const pugi::xml_node entry : node.children("EnumEntry")) {
            if (Number<std::int64_t>(entry, "Value") == value) {
                return std::string(entry.attribute("Name").value());
            }
        }
        throw Failure("its value " + std::to_string(value) + " names no entry");
    });
}

void Description::SetEnumeration(const std::string& feature, const std::string& entry)
{
    Resolve(feature, [this, &entry](pugi::xml_node node) {
        const pugi::xml_node found = node.find_child_by_attribute("EnumEntry", "Name", entry.c_str());
        if (!found) {
            throw Failure("it has no entry " + entry);
        }
        if (!IsPresent(found)) {
            throw Failure("its entry " + entry + " isn't available");
        }
        SetValueOf(node, Number<std::int64_t>(found, "Value"));
    });
}

void Description::Execute(const std::string& command)
{
    Resolve(command, [this](pugi::xml_node node) {
        const bool hasValue = node.child("CommandValue") || node.child("pCommandValue");
        SetValueOf(node, hasValue ? Number<std::int64_t>(node, "CommandValue") : 1);
    });
}

bool Description::GetBoolean(const std::string& feature)
{
    return Resolve(feature, [this](pugi::xml_node node) { return IsOn(node); });
}

void Description::SetBoolean(const std::string& feature, bool isOn)
{
    Resolve(feature, [this, isOn](pugi::xml_node node) {
        const char* child = isOn ? "OnValue" : "OffValue";
        SetValueOf(node, node.child(child) ? Number<std::int64_t>(node, child) : std::int64_t{isOn});
    });
}

std::string Description::GetString(const std::string& feature)
{
    return Resolve(feature, [this](pugi::xml_node node) {
        const auto [address, length] = LocateText(node);
        const std::vector<std::uint8_t> bytes = m_port.Read(address, length);
        return std::string(bytes.begin(), std::find(bytes.begin(), bytes.end(), 0));
    });
}

void Description::SetString(const std::string& feature, const std::string& text)
{
    Resolve(feature, [this, &text](pugi::xml_node node) {
        const auto [address, length] = LocateText(node);
        if (text.size() >= length) {
            throw Failure("it holds texts of up to " + std::to_string(length - 1) + " bytes");
        }
        std::vector<std::uint8_t> bytes(text.begin(), text.end());
        bytes.resize(length);
        m_port.Write(address, bytes);
    });
}

std::string Description::Kind(const std::string& feature) const
{
    const pugi::xml_node node = Find(feature);
    if (IsReal(node)) {
        return "Float";
    }
    if (IsRegister(node) || IsFormula(node) || IsConverter(node)) {
        return "Integer";
    }
    return std::strcmp(node.name(), "StringReg") == 0 ? "String" : node.name();
}

std::string Description::Representation(const std::string& feature) const
{
    return TextOf(Find(feature).child("Representation"));
}

std::string Description::Unit(const std::string& feature) const
{
    return TextOf(Find(feature).child("Unit"));
}

std::vector<std::string> Description::Features(const std::string& category) const
{
    std::vector<std::string> names;
    for (const pugi::xml_node child : Find(category).children("pFeature")) {
        names.push_back(TextOf(child));
    }
    return names;
}

std::vector<std::string> Description::Entries(const std::string& enumeration)
{
    return Resolve(enumeration, [this](pugi::xml_node node) {
        std::vector<std::string> names;
        for (const pugi::xml_node entry : node.children("EnumEntry")) {
            if (IsPresent(entry)) {
                names.emplace_back(entry.attribute("Name").value());
            }
        }
        return names;
    });
}

bool Description::IsAvailable(const std::string& feature)
{
    return Resolve(feature, [this](pugi::xml_node node) { return IsPresent(node); });
}

std::string Description::Access(const std::string& feature)
{
    return Resolve(feature, [this](pugi::xml_node node) { return AccessOf(node); });
}

bool Description::IsOn(pugi::xml_node node)
{
    const auto value = ValueOf<std::int64_t>(node);
    return node.child("OnValue") ? value == Number<std::int64_t>(node, "OnValue") : value != 0;
}

bool Description::Holds(pugi::xml_node node, const char* condition, bool isDefault)
{
    const pugi::xml_node child = node.child(condition);
    if (!child) {
        return isDefault;
    }
    const bool isOn = IsOn(Enter(TextOf(child)));
    m_path.pop_back();
    return isOn;
}

bool Description::IsPresent(pugi::xml_node node)
{
    if (!Holds(node, "pIsImplemented", true) || !Holds(node, "pIsAvailable", true)) {
        return false;
    }
    const pugi::xml_node reference = node.child("pValue");
    if (!reference) {
        return true;
    }
    const bool isPresent = IsPresent(Enter(TextOf(reference)));
    m_path.pop_back();
    return isPresent;
}

std::string Description::AccessOf(pugi::xml_node node)
{
    std::string access = "RW";
    if (const pugi::xml_node reference = node.child("pValue")) {
        access = AccessOf(Enter(TextOf(reference)));
        m_path.pop_back();
    } else if (const pugi::xml_node mode = RegisterChild(node, "AccessMode")) {
        access = TextOf(mode);
    } else if (IsFormula(node)) {
        access = "RO";
    }
    const std::string imposed = TextOf(node.child("ImposedAccessMode"));
    if (access == "RW" && !imposed.empty()) {
        access = imposed;
    }
    return access == "RW" && Holds(node, "pIsLocked", false) ? "RO" : access;
}

pugi::xml_node Description::Find(const std::string& name) const
{
    const auto found = m_nodes.find(name);
    if (found == m_nodes.end()) {
        throw Failure("the description has no " + (name.empty() ? "node without a name" : name));
    }
    return found->second;
}

void Description::Push(const std::string& name)
{
    m_path.push_back(name);
    if (m_path.size() > kDeepest) {
        m_path.resize(3);
        throw Failure("its nodes refer to each other without end");
    }
    Charge(1 + name.size() / kBytesPerStep);
}

pugi::xml_node Description::Enter(const std::string& name)
{
    Push(name);
    const pugi::xml_node node = Find(name);
    ChargeSearch(node);
    return node;
}

void Description::Charge(std::size_t steps)
{
    m_steps += steps;
    if (m_steps > m_mostSteps) {
        m_path.resize(std::min<std::size_t>(m_path.size(), 3));
        throw Failure("it takes too many steps");
    }
}

void Description::ChargeSearch(pugi::xml_node node)
{
    Charge(static_cast<std::size_t>(std::distance(node.begin(), node.end())) / kChildrenPerStep);
}

template <typename T>
T Description::Value(const std::string& name)
{
    const auto value = ValueOf<T>(Enter(name));
    m_path.pop_back();
    return value;
}

template <typename T>
void Description::SetValue(const std::string& name, T value)
{
    SetValueOf(Enter(name), value);
    m_path.pop_back();
}

template <typename T>
T Description::ValueOf(pugi::xml_node node)
{
    return IsReal(node) ? Converted<T>(OwnKindValueOf<double>(node))
                        : Converted<T>(OwnKindValueOf<std::int64_t>(node));
}

template <typename T>
void Description::SetValueOf(pugi::xml_node node, T value)
{
    IsReal(node) ? SetOwnKindValueOf(node, Converted<double>(value))
                 : SetOwnKindValueOf(node, Converted<std::int64_t>(value));
}

template <typename T>
T Description::OwnKindValueOf(pugi::xml_node node)
{
    if (IsRegister(node)) {
        if constexpr (std::is_integral_v<T>) {
            return ReadInteger(m_port, Locate(node));
        } else {
            return ReadReal(m_port, Locate(node));
        }
    }
    if (HoldsOrRefers(node)) {
        if (node.child("pIndex")) {
            const pugi::xml_node child = IndexedChild(node);
            return child.name()[0] == 'p' ? Value<T>(TextOf(child)) : Parse<T>(TextOf(child));
        }
        const auto own = m_ownValues.find(node.attribute("Name").value());
        return own != m_ownValues.end() ? std::get<T>(own->second) : Number<T>(node, "Value");
    }
    if (IsFormula(node)) {
        return Formula<T>(node, TextOf(node.child("Formula")));
    }
    if (IsConverter(node)) {
        return Formula<T>(node, TextOf(node.child("FormulaFrom")), "TO", Number<T>(node, "Value"));
    }
    throw Failure(std::string("it is of the kind ") + node.name() + ", which this program can't read");
}

template <typename T>
void Description::SetOwnKindValueOf(pugi::xml_node node, T value)
{
    if (IsRegister(node)) {
        return WriteRegister(node, value);
    }
    if (HoldsOrRefers(node)) {
        if constexpr (std::is_floating_point_v<T>) {
            CheckRange(node, value);
        }
        const pugi::xml_node target = node.child("pIndex") ? IndexedChild(node) : node.child("pValue");
        if (!target) {
            m_ownValues[node.attribute("Name").value()] = value;
        } else if (target.name()[0] != 'p') {
            throw Failure("it is a constant at the present index");
        } else {
            SetValue(TextOf(target), value);
        }
        for (const pugi::xml_node copy : node.children("pValueCopy")) {
            SetValue(TextOf(copy), value);
        }
        return;
    }
    if (IsConverter(node)) {
        return SetValue(TextOf(node.child("pValue")),
                        Formula<T>(node, TextOf(node.child("FormulaTo")), "FROM", value));
    }
    throw Failure(std::string("it is of the kind ") + node.name() + ", which this program can't write");
}

void Description::CheckRange(pugi::xml_node node, double value)
{
    for (const char* limit : {"Min", "Max"}) {
        if (!node.child(limit) && !node.child((std::string("p") + limit).c_str())) {
            continue;
        }
        const auto bound = Number<double>(node, limit);
        if (limit[1] == 'i' ? value < bound : value > bound) {
            throw Failure("the value " + RealText(value) + " lies beyond its " + limit + " " +
                          RealText(bound));
        }
    }
}

pugi::xml_node Description::IndexedChild(pugi::xml_node node)
{
    const auto index = Value<std::int64_t>(TextOf(node.child("pIndex")));
    for (const pugi::xml_node child : node.children()) {
        if (IsOneOf(child.name(), {"ValueIndexed", "pValueIndexed"}) &&
            ParseInteger(child.attribute("Index").value()) == index) {
            return child;
        }
    }
    for (const char* name : {"ValueDefault", "pValueDefault"}) {
        if (const pugi::xml_node child = node.child(name)) {
            return child;
        }
    }
    throw Failure("it has no value for the index " + std::to_string(index));
}

template <typename T>
T Description::Number(pugi::xml_node node, const std::string& child)
{
    if (const pugi::xml_node constant = node.child(child.c_str())) {
        return Parse<T>(TextOf(constant));
    }
    if (const pugi::xml_node reference = node.child(("p" + child).c_str())) {
        return Value<T>(TextOf(reference));
    }
    throw Failure("it lacks the element " + child);
}

template <typename T>
T Description::Formula(pugi::xml_node node, const std::string& formula, const std::string& givenName, T given)
{
    if (formula.size() > kLongestFormula) {
        throw Failure("its formula has more than " + std::to_string(kLongestFormula) + " characters");
    }
    Charge(1 + formula.size() / kBytesPerStep);
    return EvaluateFormula<T>(formula, [&](const std::string& name) {
        return !givenName.empty() && name == givenName ? given : Variable<T>(node, name);
    });
}

template <typename T>
T Description::Variable(pugi::xml_node node, const std::string& name)
{
    Charge(1);
    ChargeSearch(node);
    if (const pugi::xml_node constant = node.find_child_by_attribute("Constant", "Name", name.c_str())) {
        return Parse<T>(TextOf(constant));
    }
    if (const pugi::xml_node part = node.find_child_by_attribute("Expression", "Name", name.c_str())) {
        Push(name);
        const auto value = Formula<T>(node, TextOf(part));
        m_path.pop_back();
        return value;
    }
    const pugi::xml_node variable = node.find_child_by_attribute("pVariable", "Name", name.c_str());
    if (!variable) {
        if (IsReal(node) && IsOneOf(name.c_str(), {"PI", "E"})) {
            return Converted<T>(name == "E" ? std::exp(1.0) : std::acos(-1.0));
        }
        throw Failure("its formula has an unknown variable " + name);
    }
    const std::size_t dot = name.find('.');
    if (dot != std::string::npos && name.substr(dot) != ".Value") {
        throw Failure("its formula asks for " + name + ", which this program can't read");
    }
    return Value<T>(TextOf(variable));
}

std::size_t Description::Length(pugi::xml_node node, std::int64_t most)
{
    const pugi::xml_node port = Find(TextOf(RegisterChild(node, "pPort")));
    if (std::strcmp(port.name(), "Port") != 0 || port.child("ChunkID") || port.child("pChunkID")) {
        throw Failure("it lies outside the port's registers");
    }
    const std::int64_t length = Number<std::int64_t>(Frame(node), "Length");
    if (length < 1 || length > most) {
        throw Failure("its register is " + std::to_string(length) + " bytes long; this kind has 1 to " +
                      std::to_string(most));
    }
    return static_cast<std::size_t>(length);
}

std::pair<std::uint64_t, std::size_t> Description::LocateText(pugi::xml_node node)
{
    if (std::strcmp(node.name(), "String") == 0) {
        const auto place = LocateText(Enter(TextOf(node.child("pValue"))));
        m_path.pop_back();
        return place;
    }
    if (std::strcmp(node.name(), "StringReg") != 0) {
        throw Failure(std::string("it is of the kind ") + node.name() + ", which is no text");
    }
    const std::size_t length = Length(node, kLongestText);
    return {Address(node), length};
}

RegisterField Description::Locate(pugi::xml_node node)
{
    RegisterField where{};
    where.length = Length(node, 8);
    where.isBigEndian = TextOf(RegisterChild(node, "Endianess")) == "BigEndian";
    where.isSigned = TextOf(RegisterChild(node, "Sign")) == "Signed";
    where.highBit = static_cast<unsigned>(where.length) * 8 - 1;
    if (!IsOneOf(node.name(), {"IntReg", "FloatReg"})) {
        const bool isSingle = node.child("Bit");
        const std::int64_t bits[] = {Number<std::int64_t>(node, isSingle ? "Bit" : "LSB"),
                                     Number<std::int64_t>(node, isSingle ? "Bit" : "MSB")};
        unsigned places[2];
        for (int i = 0; i < 2; ++i) {
            if (bits[i] < 0 || bits[i] > where.highBit) {
                throw Failure("its register has no bit " + std::to_string(bits[i]));
            }
            // Big-endian descriptions count bits from the most significant one.
            const auto bit = static_cast<unsigned>(bits[i]);
            places[i] = where.isBigEndian ? where.highBit - bit : bit;
        }
        where.lowBit = std::min(places[0], places[1]);
        where.highBit = std::max(places[0], places[1]);
    }
    where.address = Address(Frame(node));
    return where;
}

std::uint64_t Description::Address(pugi::xml_node node)
{
    std::uint64_t sum = 0;
    bool isGiven = false;
    for (const pugi::xml_node child : node.children()) {
        std::int64_t part = 0;
        if (std::strcmp(child.name(), "Address") == 0) {
            part = ParseInteger(TextOf(child));
        } else if (std::strcmp(child.name(), "pAddress") == 0) {
            part = Value<std::int64_t>(TextOf(child));
        } else if (std::strcmp(child.name(), "IntSwissKnife") == 0) {
            part = Formula<std::int64_t>(child, TextOf(child.child("Formula")));
        } else if (std::strcmp(child.name(), "pIndex") == 0) {
            const pugi::xml_attribute offset = child.attribute("Offset");
            const pugi::xml_attribute reference = child.attribute("pOffset");
            const std::int64_t step = offset      ? ParseInteger(offset.value())
                                      : reference ? Value<std::int64_t>(reference.value())
                                                  : Number<std::int64_t>(node, "Length");
            part = static_cast<std::int64_t>(static_cast<std::uint64_t>(step) *
                                             static_cast<std::uint64_t>(Value<std::int64_t>(TextOf(child))));
        } else {
            continue;
        }
        sum += static_cast<std::uint64_t>(part);
        isGiven = true;
    }
    if (!isGiven) {
        throw Failure("its register has no address");
    }
    return sum;
}

template <typename T>
void Description::WriteRegister(pugi::xml_node node, T value)
{
    const std::string access = TextOf(RegisterChild(node, "AccessMode"));
    if (access == "RO") {
        throw Failure("it is read-only");
    }
    if constexpr (std::is_integral_v<T>) {
        WriteInteger(m_port, Locate(node), value, access != "WO");
    } else {
        WriteReal(m_port, Locate(node), value);
    }
}

}  // namespace Tool
