#include "exporter_test_files.h"

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <unistd.h>

#include <gtest/gtest.h>

#include "settings/tessel_export_ui_tunneling.h"
#include "settings/tessel_settings_text.h"

namespace {

struct private_temporary_directory
{
    std::string Path;

    private_temporary_directory()
    {
        char Template[] = "/tmp/tessel_exporter_test_XXXXXX";
        if (mkdtemp(Template)) {
            Path = Template;
            setenv("TMPDIR", Template, 1);
        }
    }

    // Everything goes, the tests' own inputs and outputs too.
    ~private_temporary_directory()
    {
        if (Path.empty()) return;
        if (DIR *Directory = opendir(Path.c_str())) {
            while (dirent *Entry = readdir(Directory)) {
                std::string Name = Entry->d_name;
                if (Name != "." && Name != "..") remove((Path + "/" + Name).c_str());
            }
            closedir(Directory);
        }
        rmdir(Path.c_str());
    }
};

private_temporary_directory &TemporaryDirectory()
{
    static private_temporary_directory Directory;
    return Directory;
}

// Sets $TMPDIR before any test runs.
struct set_up_at_start
{
    set_up_at_start() { TemporaryDirectory(); }
} SetUpAtStart;

} // namespace

std::string PrivateTemporaryDirectory()
{
    return TemporaryDirectory().Path;
}

std::vector<std::string> ListTemporaryFiles()
{
    std::vector<std::string> Names;
    DIR *Directory = opendir(TemporaryDirectory().Path.c_str());
    if (!Directory) return Names;
    while (dirent *Entry = readdir(Directory)) {
        std::string Name = Entry->d_name;
        if (Name == "." || Name == "..") continue;
        // Inputs and outputs of the tests themselves.
        if (Name.rfind("input_", 0) == 0 || Name.rfind("output_", 0) == 0) continue;
        Names.push_back(Name);
    }
    closedir(Directory);
    return Names;
}

static void CollectFBXFiles(std::string const &Folder, std::vector<std::string> &Files)
{
    DIR *Directory = opendir(Folder.c_str());
    if (!Directory) return;
    while (dirent *Entry = readdir(Directory)) {
        std::string Name = Entry->d_name;
        if (Name == "." || Name == "..") continue;
        std::string Path = Folder + "/" + Name;
        struct stat Info;
        if (stat(Path.c_str(), &Info) != 0) continue;
        if (S_ISDIR(Info.st_mode)) {
            CollectFBXFiles(Path, Files);
        } else if (Name.size() > 4 && strcasecmp(Name.c_str() + Name.size() - 4, ".fbx") == 0) {
            Files.push_back(Path);
        }
    }
    closedir(Directory);
}

std::vector<std::string> ListSharedFBXFiles()
{
    std::vector<std::string> Files;
    CollectFBXFiles(TESSEL_SHARED_FBX_DIR, Files);
    std::sort(Files.begin(), Files.end());
    return Files;
}

std::string WriteTestFile(std::string const &Name, std::string const &Text)
{
    std::string Path = TemporaryDirectory().Path + "/input_" + Name;
    FILE *File = fopen(Path.c_str(), "wb");
    if (File) {
        fwrite(Text.data(), 1, Text.size(), File);
        fclose(File);
    }
    return Path;
}

std::string SharedFBXFile(char const *RelativePath)
{
    std::string Path = std::string(TESSEL_SHARED_FBX_DIR) + "/" + RelativePath;
    return access(Path.c_str(), R_OK) == 0 ? Path : std::string();
}

std::string WriteTestSettings(std::string const &Name, std::vector<std::string> const &Assignments)
{
    settings_pools Pools;
    EXPECT_TRUE(InitializeSettingsPools(Pools));
    settings_node *Root = BuildDefaultSettingsTree(Pools);
    for (std::string const &Assignment : Assignments) {
        char Error[1024];
        EXPECT_TRUE(ApplySettingAssignment(Root, Assignment.c_str(), Error, sizeof(Error))) << Error;
    }
    std::string Path = PrivateTemporaryDirectory() + "/input_" + Name;
    EXPECT_TRUE(WriteSettingsFile(Root, Path.c_str()));
    FreeSettingsPools(Pools);
    return Path;
}
