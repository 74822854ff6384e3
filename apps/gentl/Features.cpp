#include "gentl/Features.h"

#include "gentl/Description.h"
#include "gentl/ExitCode.h"
#include "gentl/Failure.h"
#include "gentl/Files.h"
#include "gentl/Note.h"
#include "gentl/Numbers.h"
#include "gentl/Unzip.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <set>

namespace Tool {
namespace {

constexpr std::size_t kNameWidth = 42;
constexpr std::size_t kDeepestCategory = 40;

std::string IntegerText(Description& description, const std::string& feature)
{
    const std::int64_t value = description.GetInteger(feature);
    const auto bits = static_cast<std::uint64_t>(value);
    const std::string representation = description.Representation(feature);
    if (representation == "IPV4Address") {
        return IpText(bits);
    }
    if (representation == "MACAddress") {
        return MacText(bits);
    }
    return representation == "HexNumber" ? Format("0x%llX", bits) : std::to_string(value);
}

std::int64_t ParseNumber(const std::string& text)
{
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) == 1) {
        return ntohl(address.s_addr);
    }
    if (const std::optional<std::int64_t> value = ToInteger(text)) {
        return *value;
    }
    throw Failure("\"" + text + "\" is no number", "Numbers are written as 16, 0x10 or 192.168.1.1.");
}

double ParseFloat(const std::string& text)
{
    const double value = ParseReal(text);
    if (!std::isfinite(value)) {
        throw Failure("\"" + text + "\" is no finite number");
    }
    return value;
}

bool ParseSwitch(const std::string& text)
{
    for (const bool isOn : {true, false}) {
        const char* const words[] = {isOn ? "true" : "false", isOn ? "on" : "off", isOn ? "1" : "0"};
        if (std::any_of(std::begin(words), std::end(words), [&](const char* word) { return text == word; })) {
            return isOn;
        }
    }
    throw Failure("\"" + text + "\" is neither true nor false");
}

/// What a person may know beside the value.
std::string Remark(Description& description, const std::string& feature)
{
    const std::string access = description.Access(feature);
    return access == "RO" ? "  (read-only)" : access == "WO" ? "  (write-only)" : "";
}

std::string Shown(Description& description, const std::string& feature)
{
    if (!description.IsAvailable(feature)) {
        return "  (not available)";
    }
    if (description.Kind(feature) == "Command") {
        return "  (command)";
    }
    if (description.Access(feature) == "WO") {
        return Remark(description, feature);
    }
    const std::string unit = description.Unit(feature);
    return "= " + FeatureText(description, feature) + (unit.empty() ? "" : " " + unit) +
           Remark(description, feature);
}

/// Much of it comes from the camera.
void PrintLine(std::ostream& out, const std::string& line)
{
    out << Printable(line) << '\n';
}

void Print(std::ostream& out, const std::string& name, const std::string& shown)
{
    PrintLine(out, name + std::string(name.size() < kNameWidth ? kNameWidth - name.size() : 1, ' ') + shown);
}

/// visited keeps categories that list each other from being shown for ever.
void PrintCategory(Description& description,
                   const std::string& category,
                   std::size_t depth,
                   std::set<std::string>& visited,
                   std::ostream& out)
{
    if (!visited.insert(category).second) {
        return;
    }
    if (depth >= kDeepestCategory) {
        throw Failure("categories nested too deeply: " + category + " is behind " + std::to_string(depth) +
                      " others");
    }
    const std::string indent(2 * depth, ' ');
    for (const std::string& feature : description.Features(category)) {
        if (!description.Has(feature)) {
            Print(out, indent + feature, "  (missing in the description)");
        } else if (description.Kind(feature) == "Category") {
            PrintLine(out, indent + feature);
            PrintCategory(description, feature, depth + 1, visited, out);
        } else {
            std::string shown;
            try {
                shown = Shown(description, feature);
            } catch (const Failure& failure) {
                shown = std::string("  (") + failure.what() + ")";
            }
            Print(out, indent + feature, shown);
        }
    }
}

void CheckIsThere(const Description& description, const std::string& feature)
{
    if (!description.Has(feature)) {
        throw Failure("the module has no feature " + feature,
                      "\"gentl features\" without a name shows what there is.");
    }
}

void PerformRequest(Description& description, const std::string& request)
{
    const std::size_t equals = request.find('=');
    const std::string feature = request.substr(0, equals);
    CheckIsThere(description, feature);
    if (equals != std::string::npos) {
        WriteFeature(description, feature, request.substr(equals + 1));
    }
    Print(std::cout, feature, Shown(description, feature));
    if (equals == std::string::npos) {
        for (const std::string& entry : description.Entries(feature)) {
            PrintLine(std::cout, "    " + entry);
        }
    }
}

}  // namespace

std::string FeatureText(Description& description, const std::string& feature)
{
    const std::string kind = description.Kind(feature);
    if (kind == "Enumeration") {
        return description.GetEnumeration(feature);
    }
    if (kind == "Boolean") {
        return description.GetBoolean(feature) ? "true" : "false";
    }
    if (kind == "String") {
        return '"' + Printable(description.GetString(feature)) + '"';
    }
    return kind == "Float" ? RealText(description.GetFloat(feature)) : IntegerText(description, feature);
}

void WriteFeature(Description& description, const std::string& feature, const std::string& text)
{
    if (!description.IsAvailable(feature)) {
        throw Failure(feature + " isn't available");
    }
    if (description.Access(feature) == "RO") {
        throw Failure(feature + " is read-only");
    }
    const std::string kind = description.Kind(feature);
    if (kind == "Command") {
        description.Execute(feature);
    } else if (kind == "Enumeration") {
        description.SetEnumeration(feature, text);
    } else if (kind == "Boolean") {
        description.SetBoolean(feature, ParseSwitch(text));
    } else if (kind == "Float") {
        description.SetFloat(feature, ParseFloat(text));
    } else if (kind == "String") {
        const bool isQuoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
        description.SetString(feature, isQuoted ? text.substr(1, text.size() - 2) : text);
    } else {
        description.SetInteger(feature, ParseNumber(text));
    }
}

void PrintFeatures(Description& description, std::ostream& out)
{
    std::set<std::string> visited;
    PrintCategory(description, "Root", 0, visited, out);
}

int Features(const Producer& producer, ModuleChoice choice, const std::vector<std::string>& requests)
{
    choice.forWriting = std::any_of(requests.begin(), requests.end(), [](const std::string& request) {
        return request.find('=') != std::string::npos;
    });
    ModulePort port(producer, choice);
    Description description(Unzipped(port.FetchDescription()), port.Registers());
    for (const std::string& request : requests) {
        PerformRequest(description, request);
    }
    if (requests.empty()) {
        PrintFeatures(description, std::cout);
    }
    return ExitCode::kDone;
}

int SaveXml(const Producer& producer, const ModuleChoice& choice, const std::string& file)
{
    const std::string text = Unzipped(ModulePort(producer, choice).FetchDescription());
    WriteFile(file, text.data(), text.size());
    return ExitCode::kDone;
}

}  // namespace Tool
