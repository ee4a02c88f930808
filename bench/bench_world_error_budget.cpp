// The world error budget on the three motion capture clips: per clip and
// setting (the default tolerances, the baseline, then budgets of 0.01, 0.05,
// 0.1 and 0.5 scene units), the curve bytes per bone and second of
// animation, before and after section compression, and the largest and
// 99th-percentile error of the virtual points (3 cm from each bone) over
// every sample and bone; the seconds of the export with 2 fitting workers
// (measured without the report, which costs a measurement of its own); and
// whether 1, 2 and 8 workers wrote the same bytes.
//
// usage: bench_world_error_budget [FILE.fbx ...]   (paths below the shared folder)
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

#include "animation/tessel_compression_queue.h"
#include "animation/tessel_world_error_budget.h"
#include "fbx_tool/fbx_tessel.h"
#include "format/tessel_file_reader.h"
#include "settings/tessel_export_ui_tunneling.h"
#include "settings/tessel_requester.h"
#include "settings/tessel_settings_text.h"

namespace {

std::string ReadAll(std::string const &Path)
{
    std::ifstream In(Path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
}

bool WriteSettings(std::string const &Path, double Budget)
{
    settings_pools Pools;
    if (!InitializeSettingsPools(Pools)) return false;
    settings_node *Root = BuildDefaultSettingsTree(Pools);
    char Assignment[64], Error[256];
    snprintf(Assignment, sizeof(Assignment), "Maximum world error=%g", Budget);
    bool Written =
        Root && ApplySettingAssignment(Root, Assignment, Error, sizeof(Error)) && WriteSettingsFile(Root, Path.c_str());
    FreeSettingsPools(Pools);
    return Written;
}

double Export(std::string const &Input, std::string const &Output, std::string const &Settings, int32 Workers)
{
    SetCompressionThreadCount(Workers);
    export_options Options;
    Options.SourceFileToEmbed = 0;
    Options.ShowProgress = false;
    Options.SettingsFileName = Settings.empty() ? nullptr : Settings.c_str();
    bool Exported = false;
    auto Start = std::chrono::steady_clock::now();
    bool Accepted = ExportFBXFileWithOptions(Input.c_str(), Output.c_str(), nullptr, Options, nullptr, &Exported);
    double Seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - Start).count();
    return Accepted && Exported ? Seconds : -1.0;
}

} // namespace

int main(int ArgumentCount, char **Arguments)
{
    std::string const Root = TESSEL_SHARED_FBX_DIR;
    std::vector<std::string> Files;
    for (int Index = 1; Index < ArgumentCount; ++Index) Files.push_back(Arguments[Index]);
    if (Files.empty()) {
        for (char const *Name : {"01_01_cmu.fbx", "49_08_cmu.fbx", "55_01_cmu.fbx"})
            Files.push_back(std::string("cmu-mocap-isaacgym/isaacgymenvs/tasks/amp/poselib/data/") + Name);
    }
    std::string const Scratch = "/tmp/bench_world_error_budget_" + std::to_string((long)getpid());
    std::vector<double> const Budgets = {0.0, 0.01, 0.05, 0.1, 0.5};
    for (double Budget : Budgets) {
        if (Budget > 0 && !WriteSettings(Scratch + "_" + std::to_string(Budget) + ".tss", Budget)) {
            fprintf(stderr, "cannot write a settings file\n");
            return 1;
        }
    }
    printf("%-16s %-9s %11s %11s %10s %10s %9s %9s %s\n", "file", "budget", "B/bone/s", "compressed", "largest", "p99",
           "export s", "vs dflt", "threads 1/2/8");
    for (std::string const &Relative : Files) {
        std::string Path = Relative[0] == '/' ? Relative : Root + "/" + Relative;
        std::string Short = Relative.substr(Relative.rfind('/') + 1);
        double DefaultSeconds = 0.0;
        for (double Budget : Budgets) {
            std::string Settings = Budget > 0 ? Scratch + "_" + std::to_string(Budget) + ".tss" : "";
            std::string Output = Scratch + ".ts2";
            // The time of a plain export, then the figures from a second one.
            double Seconds = Export(Path, Output, Settings, 2);
            if (Seconds < 0) {
                printf("%-16.16s %-9g export failed\n", Short.c_str(), Budget);
                continue;
            }
            if (Budget == 0) DefaultSeconds = Seconds;
            std::string Bytes2 = ReadAll(Output);
            std::vector<world_error_animation_figures> Report;
            SetWorldErrorReport(&Report);
            Export(Path, Output, Settings, 2);
            SetWorldErrorReport(nullptr);
            double Ratio = GetSectionCompressionRatio(Output.c_str());
            // The same bytes from 1 and 8 workers.
            bool Same = true;
            for (int32 Workers : {1, 8}) {
                Export(Path, Output, Settings, Workers);
                Same = Same && ReadAll(Output) == Bytes2;
            }
            remove(Output.c_str());
            double CurveBytes = 0, BoneSeconds = 0, Largest = 0;
            std::vector<float> All;
            for (auto const &A : Report)
                for (auto const &M : A.Models)
                    for (auto const &B : M.Bones) {
                        CurveBytes += B.Bytes;
                        BoneSeconds += A.Duration;
                        Largest = std::max(Largest, B.Largest);
                        All.insert(All.end(), B.Error.begin(), B.Error.end());
                    }
            double P99 = 0;
            if (!All.empty()) {
                size_t At = (size_t)std::floor(0.99 * (double)(All.size() - 1));
                std::nth_element(All.begin(), All.begin() + (long)At, All.end());
                P99 = All[At];
            }
            double Rate = BoneSeconds > 0 ? CurveBytes / BoneSeconds : 0;
            char Label[16];
            snprintf(Label, sizeof(Label), Budget > 0 ? "%g" : "defaults", Budget);
            printf("%-16.16s %-9s %11.1f %11.1f %10.4g %10.4g %9.2f %9.2f %s\n", Short.c_str(), Label, Rate,
                   Rate * Ratio, Largest, P99, Seconds, DefaultSeconds > 0 ? Seconds / DefaultSeconds : 0.0,
                   Same ? "identical" : "DIFFERENT");
            fflush(stdout);
        }
    }
    for (double Budget : Budgets)
        if (Budget > 0) remove((Scratch + "_" + std::to_string(Budget) + ".tss").c_str());
    SetCompressionThreadCount(0);
    return 0;
}
