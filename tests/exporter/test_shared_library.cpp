// The library as a host sees it: loaded with dlopen, one exported function.
#include <gtest/gtest.h>

#include <cstdio>
#include <dlfcn.h>
#include <string>
#include <unistd.h>
#include <vector>

#include <rapidxml/rapidxml.hpp>

#include "exporter_test_files.h"
#include "foundation/tessel_version.h"
#include "tessel/tessel.h"

namespace {

char const ExportTitle[] = "Tessel " TESSEL_VERSION_STRING " is Exporting a TS2 File";

typedef bool (*export_fbx_file)(char const *, char const *, char const *, ExportProgressCallback);

std::string LibraryPath()
{
    return std::string(TESSEL_BINARY_DIR) + "/libtessel.so";
}

class SharedLibrary : public ::testing::Test
{
protected:
    void SetUp() override
    {
        Handle = dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(Handle, nullptr) << dlerror();
        Export = (export_fbx_file)dlsym(Handle, "ExportFBXFile");
        ASSERT_NE(Export, nullptr);
        Titles = 0;
    }
    void TearDown() override
    {
        if (Handle) dlclose(Handle);
    }

    static void CountTitles(export_progress const *Progress)
    {
        if (Progress->Title && std::string(Progress->Title) == ExportTitle) ++Titles;
    }

    std::string Output(char const *Name) { return PrivateTemporaryDirectory() + "/output_" + Name; }

    void *Handle = nullptr;
    export_fbx_file Export = nullptr;
    static int Titles;
};

int SharedLibrary::Titles = 0;

// The scene that ships with the sources, so these tests always run.
std::string const SceneFile = std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm.fbx";

} // namespace

TEST_F(SharedLibrary, RefusesMissingOrEmptyAnimationDefsAndUnloadableScenes)
{
    std::string const &Scene = SceneFile;
    std::string Out = Output("refused.ts2");

    std::string Missing = PrivateTemporaryDirectory() + "/no_such_defs.xml";
    EXPECT_FALSE(Export(Scene.c_str(), Out.c_str(), Missing.c_str(), CountTitles));
    // A folder opens but reads nothing.
    EXPECT_FALSE(Export(Scene.c_str(), Out.c_str(), PrivateTemporaryDirectory().c_str(), CountTitles));
    std::string Empty = WriteTestFile("nodefs.xml", "<Defs><Animation name=\"a\" start=\"0\" end=\"1\"/></Defs>");
    EXPECT_FALSE(Export(Scene.c_str(), Out.c_str(), Empty.c_str(), CountTitles));

    std::string Good = WriteTestFile("defs.xml", "<Defs><AnimationDef name=\"a\" start=\"0\" end=\"1\"/></Defs>");
    std::string NotFBX = WriteTestFile("not.fbx", "just some text\n");
    EXPECT_FALSE(Export(NotFBX.c_str(), Out.c_str(), Good.c_str(), CountTitles));
    EXPECT_FALSE(Export((PrivateTemporaryDirectory() + "/missing.fbx").c_str(), Out.c_str(), nullptr, CountTitles));

    EXPECT_EQ(Titles, 0); // nothing was exported
    EXPECT_NE(access(Out.c_str(), F_OK), 0);
    EXPECT_TRUE(ListTemporaryFiles().empty());
}

TEST_F(SharedLibrary, ExportsWithAnimationDefsAndProgress)
{
    std::string const &Scene = SceneFile;
    std::string Out = Output("suzanne.ts2");
    std::string Defs = WriteTestFile("defs.xml", "<Defs><AnimationDef name=\"a\" start=\"0\" end=\"1\"/></Defs>");
    EXPECT_TRUE(Export(Scene.c_str(), Out.c_str(), Defs.c_str(), CountTitles));
    EXPECT_GE(Titles, 1);
    EXPECT_EQ(access(Out.c_str(), F_OK), 0);
    remove(Out.c_str());
    EXPECT_TRUE(Export(Scene.c_str(), Out.c_str(), nullptr, nullptr));
    EXPECT_TRUE(ListTemporaryFiles().empty());
    remove(Out.c_str());
}

TEST_F(SharedLibrary, MalformedAnimationDefsThrowTheParserError)
{
    std::string const &Scene = SceneFile;
    std::string Bad = WriteTestFile("bad.xml", "<Defs><AnimationDef name=\"a\" start=\"0\" end=\"1\"></Defs>");
    bool Caught = false;
    try {
        Export(Scene.c_str(), Output("bad.ts2").c_str(), Bad.c_str(), nullptr);
    } catch (rapidxml::parse_error const &Error) {
        Caught = true;
        EXPECT_STRNE(Error.what(), "");
    }
    EXPECT_TRUE(Caught);
}

TEST(SharedLibrarySymbols, ExportFBXFileIsTheOnlyFunction)
{
    std::string Command = "nm -D --defined-only '" + LibraryPath() + "' 2>/dev/null";
    if (system("command -v nm >/dev/null 2>&1") != 0) GTEST_SKIP() << "nm not available";
    FILE *Pipe = popen(Command.c_str(), "r");
    ASSERT_NE(Pipe, nullptr);
    std::vector<std::string> Functions;
    char Line[512];
    while (fgets(Line, sizeof(Line), Pipe)) {
        char Address[64], Type[8], Name[400];
        if (sscanf(Line, "%63s %7s %399s", Address, Type, Name) == 3 && (Type[0] == 'T' || Type[0] == 'W')) {
            Functions.push_back(Name);
        }
    }
    pclose(Pipe);
    EXPECT_EQ(Functions, std::vector<std::string>{"ExportFBXFile"});
}
