// Files and folders for the exporter tests. Every test program that includes
// this runs with $TMPDIR pointing at a private, initially empty folder, so
// that temporary files left behind by an export can be found.
#pragma once

#include <string>
#include <vector>

// The private temporary folder.
std::string PrivateTemporaryDirectory();
// Names of the files in the private temporary folder, apart from the
// tests' own "input_" and "output_" files.
std::vector<std::string> ListTemporaryFiles();
// Writes Text to a file in the private temporary folder; returns its path.
std::string WriteTestFile(std::string const &Name, std::string const &Text);
// Writes a settings file of the defaults with the "Label=value"
// Assignments applied, as input_<Name> in the private folder; its path.
std::string WriteTestSettings(std::string const &Name, std::vector<std::string> const &Assignments);
// Every .fbx file below the shared corpus folder, sorted; empty when the
// corpus is missing.
std::vector<std::string> ListSharedFBXFiles();
// A real FBX file from the shared corpus, or "" when the corpus is missing.
std::string SharedFBXFile(char const *RelativePath);
