// Whole exports in process: a fixed list of ten files of the shared FBX
// corpus, each exported with section compression on one and on two worker
// threads and with compression off, so that the share of packaging in each
// export shows. Prints wall seconds per file (best of --runs, default 3) and
// the totals.
//
//   bench_export [--runs N] [--dir FOLDER]
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fbx_tool/fbx_tessel.h"
#include "format/tessel_work_queue.h"
#include "foundation/tessel_log.h"
#include "platform/tessel_platform.h"
#include "settings/tessel_export_ui.h"
#include "settings/tessel_export_ui_tunneling.h"
#include "settings/tessel_requester.h"

namespace {

char const *const Files[] = {
    "quaternius-kenney/FreeModels by Quaternius[Patreon]/Characters and Animals/Animal Pack Vol.2 - Jul 2017/FBX/"
    "Eagle.fbx",
    "quaternius-kenney/FreeModels by Quaternius[Patreon]/Vehicles/Train Pack - April 2019/FBX/Locomotive_Front.fbx",
    "quaternius-kenney/FreeModels by Quaternius[Patreon]/Characters and Animals/Alien Animated - April 2019/FBX/"
    "Alien.fbx",
    "quaternius-kenney/FreeModels by Quaternius[Patreon]/Characters and Animals/Woman Animated - Dec 2017/FBX/"
    "Animated Woman.fbx",
    "quaternius-kenney/FreeModels by Quaternius[Patreon]/Characters and Animals/Easy Animated Enemy Pack - Jan "
    "2019/FBX/Spider.fbx",
    "quaternius-kenney/FreeModels by Quaternius[Patreon]/Characters and Animals/Animated Robot - Oct 2018/FBX/"
    "Robot.fbx",
    "ufbx/data/maya_slime_7500_binary.fbx",
    "ufbx/data/max_cache_box_7500_binary.fbx",
    "ufbx/data/blender_279_sausage_6100_ascii.fbx",
    "ufbx/data/max2009_blob_5800_ascii.fbx",
};

// The process's peak resident memory so far, in MiB.
double PeakMiB()
{
    rusage Usage;
    getrusage(RUSAGE_SELF, &Usage);
    return Usage.ru_maxrss / 1024.0;
}

double ExportSeconds(std::string const &Input, std::string const &Output, char const *Settings, int Runs)
{
    export_options Options = {nullptr, false, Settings};
    double Best = 1e30;
    for (int Run = 0; Run < Runs; ++Run) {
        auto Start = std::chrono::steady_clock::now();
        bool Exported = false;
        ExportFBXFileWithOptions(Input.c_str(), Output.c_str(), nullptr, Options, nullptr, &Exported);
        double Seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - Start).count();
        if (!Exported) return -1.0;
        if (Seconds < Best) Best = Seconds;
    }
    remove(Output.c_str());
    return Best;
}

// A settings file with "File compression" set to none.
bool WriteUncompressedSettings(std::string const &Path)
{
    settings_pools Pools;
    if (!InitializeSettingsPools(Pools)) return false;
    settings_node *Root = BuildDefaultSettingsTree(Pools);
    settings_node *File = Root ? FindSettingsNode(Root, SettingsCategory_File) : nullptr;
    bool Result = File && SetSettingChoice(FindSetting(File, SettingId_FileCompression), Choice_NoCompression) &&
                  WriteSettingsFile(Root, Path.c_str());
    FreeSettingsPools(Pools);
    return Result;
}

} // namespace

int main(int ArgumentCount, char **Arguments)
{
    int Runs = 3;
    std::string Folder = TESSEL_SHARED_FBX_DIR;
    for (int Index = 1; Index < ArgumentCount; ++Index) {
        std::string Argument = Arguments[Index];
        if (Argument == "--runs" && Index + 1 < ArgumentCount) {
            Runs = atoi(Arguments[++Index]);
        } else if (Argument == "--dir" && Index + 1 < ArgumentCount) {
            Folder = Arguments[++Index];
        } else {
            printf("usage: bench_export [--runs N] [--dir FOLDER]\n");
            return Argument == "--help" || Argument == "-h" ? 0 : 1;
        }
    }
    if (Runs < 1) Runs = 1;
    std::string Temporary =
        std::string(GetTemporaryDirectory()) + "/bench_export_" + std::to_string(GetProcessIdentifier());
    std::string Uncompressed = Temporary + "_settings.bin";
    if (!WriteUncompressedSettings(Uncompressed)) {
        fprintf(stderr, "cannot write the settings file %s\n", Uncompressed.c_str());
        return 1;
    }
    printf("wall seconds per export, best of %d; processors: %d\n", Runs, GetProcessorCount());
    // Peak MiB: the process's peak resident memory after the file's one- and
    // two-thread exports (it only ever rises, so the first file, the largest,
    // shows its own peaks).
    printf("%-28s %9s %9s %9s %8s %9s %8s %8s\n", "file", "1 thread", "2 threads", "stored", "2t/1t", "packaging",
           "peak 1t", "peak 2t");
    double Totals[3] = {0, 0, 0};
    for (char const *File : Files) {
        std::string Input = Folder + "/" + File;
        std::string Output = Temporary + ".ts2";
        double Seconds[3];
        SetWorkerThreadCount(1);
        Seconds[0] = ExportSeconds(Input, Output, nullptr, Runs);
        double PeakOne = PeakMiB();
        SetWorkerThreadCount(2);
        Seconds[1] = ExportSeconds(Input, Output, nullptr, Runs);
        double PeakTwo = PeakMiB();
        SetWorkerThreadCount(0);
        Seconds[2] = ExportSeconds(Input, Output, Uncompressed.c_str(), Runs);
        std::string Name = File;
        Name = Name.substr(Name.find_last_of('/') + 1);
        if (Seconds[0] < 0 || Seconds[1] < 0 || Seconds[2] < 0) {
            printf("%-28.28s export failed (missing corpus?)\n", Name.c_str());
            continue;
        }
        for (int Index = 0; Index < 3; ++Index) Totals[Index] += Seconds[Index];
        // Packaging share: the time compression adds, over the one-thread export.
        printf("%-28.28s %9.3f %9.3f %9.3f %8.2f %8.0f%% %8.1f %8.1f\n", Name.c_str(), Seconds[0], Seconds[1],
               Seconds[2], Seconds[1] / Seconds[0], 100.0 * (Seconds[0] - Seconds[2]) / Seconds[0], PeakOne, PeakTwo);
        fflush(stdout);
    }
    printf("%-28s %9.3f %9.3f %9.3f %8.2f %8.0f%%\n", "total", Totals[0], Totals[1], Totals[2],
           Totals[0] > 0 ? Totals[1] / Totals[0] : 0.0,
           Totals[0] > 0 ? 100.0 * (Totals[0] - Totals[2]) / Totals[0] : 0.0);
    remove(Uncompressed.c_str());
    return 0;
}
