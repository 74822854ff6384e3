/// The commands that show and change the features of a module.
#pragma once

#include "gentl/ModulePort.h"

#include <ostream>
#include <string>
#include <vector>

namespace Tool {

class Description;

/// Carries out the requests one after the other: NAME prints a feature's value, NAME=VALUE writes it and
/// prints what it then is; a command runs with any value. Without a request prints all features, in their
/// categories. Gives the exit code; throws Failure.
int Features(const Producer& producer, ModuleChoice choice, const std::vector<std::string>& requests);

/// Saves the module's description to the file, unzipped. Gives the exit code; throws Failure.
int SaveXml(const Producer& producer, const ModuleChoice& choice, const std::string& file);

/// All features, in their categories. Throws Failure for categories in categories without end.
void PrintFeatures(Description& description, std::ostream& out);
/// A feature's value as a person writes it. Throws Failure.
std::string FeatureText(Description& description, const std::string& feature);
/// Writes what FeatureText would show, or a number as decimal or 0x... Throws Failure for a feature that is
/// unavailable or read-only, and for a value that it can't have.
void WriteFeature(Description& description, const std::string& feature, const std::string& text);

}  // namespace Tool
