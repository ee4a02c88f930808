#include "support/test_command.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

command_result RunCommand(std::string const &Command, bool MergeErrors)
{
    command_result Result;
    std::string Full = Command + (MergeErrors ? " 2>&1" : " 2>/dev/null");
    FILE *Pipe = popen(Full.c_str(), "r");
    if (!Pipe) return Result;
    char Buffer[4096];
    size_t Size;
    while ((Size = fread(Buffer, 1, sizeof(Buffer), Pipe)) > 0) Result.Output.append(Buffer, Size);
    int Status = pclose(Pipe);
    Result.Status = WIFEXITED(Status) ? WEXITSTATUS(Status) : -1;
    return Result;
}

std::string TesselProgramPath()
{
    std::string Path = std::string(TESSEL_BINARY_DIR) + "/tools/tessel";
    return access(Path.c_str(), X_OK) == 0 ? Path : std::string();
}

std::string TesselCommandPrefix()
{
    char const *Wrapper = getenv("TESSEL_TEST_WRAPPER");
    return (Wrapper && Wrapper[0] ? std::string(Wrapper) + " " : std::string()) + "'" + std::string(TESSEL_BINARY_DIR) +
           "/tools/tessel'";
}

command_result RunTessel(std::string const &Arguments, bool MergeErrors)
{
    return RunCommand(TesselCommandPrefix() + " " + Arguments, MergeErrors);
}
