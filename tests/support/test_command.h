// Runs the tessel program (or any command) the way a user does.
#pragma once

#include <string>

struct command_result
{
    int Status = -1;    // exit status, -1 when the command did not exit normally
    std::string Output; // what it printed
};

// Runs a shell command; with MergeErrors its standard error is captured too,
// otherwise it is discarded.
command_result RunCommand(std::string const &Command, bool MergeErrors = true);
// The built tessel program, or "" when it is not there.
std::string TesselProgramPath();
// The shell words that start the program: its quoted path, after
// $TESSEL_TEST_WRAPPER when that is set (`make valgrind` puts memcheck there).
std::string TesselCommandPrefix();
command_result RunTessel(std::string const &Arguments, bool MergeErrors = true);
