// Bone animation export: whole exports of the three motion capture clips and
// the largest animated character of the shared files, with 1 and 2 curve
// fitting workers. Prints per file and worker count the seconds of the
// export, of its animation stage and of the fit within it (from "Compressing
// bones" to the animation's last bone), the fit's speed-up over 1 worker
// (the baseline, in the same process), the curve bytes per bone and second
// of animation, and the error of the curves composed through the skeleton
// against the reference world matrices (a point 5 % of the skeleton's size
// from each bone, relative to that size). Wall-clock seconds: the point is
// whether the workers keep the cores busy; "fit cores" is the CPU seconds of
// all threads during the fit over its wall-clock seconds (2 on two idle
// cores when both workers run; less when other processes hold the cores).
//
// usage: bench_animation [FILE.fbx ...]   (paths below the shared folder)
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "../tests/support/animation_reference.h"
#include "animation/tessel_compression_queue.h"
#include "animation/tessel_curve.h"
#include "format/tessel_file_reader.h"
#include "format/tessel_schema.h"
#include "tessel/tessel.h"

using namespace animation_reference;

namespace {

using clock_type = std::chrono::steady_clock;

// CPU seconds of the whole process, every thread.
double ProcessSeconds()
{
    timespec Now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &Now);
    return (double)Now.tv_sec + 1e-9 * (double)Now.tv_nsec;
}

double Since(clock_type::time_point Start)
{
    return std::chrono::duration<double>(clock_type::now() - Start).count();
}

// Stage timing from the progress reports.
struct stage_times
{
    clock_type::time_point Last;
    uint32 Position = 0;
    std::string Stage, Item;
    double Animations = 0.0; // the whole "Animations" stage
    double Fitting = 0.0;    // "Compressing bones" up to the next animation or stage
    double FittingCPU = 0.0; // CPU seconds of all threads meanwhile
    double FitStartCPU = 0.0;
    bool InFit = false;
    clock_type::time_point FitStart;
};

stage_times Times;

void Progress(export_progress const *Report)
{
    if (Report->Position == Times.Position) return;
    clock_type::time_point Now = clock_type::now();
    std::string Stage = Report->Stage ? Report->Stage : "";
    std::string Item = Report->Item ? Report->Item : "";
    if (Times.Stage == "Animations") Times.Animations += std::chrono::duration<double>(Now - Times.Last).count();
    bool EndsFit = Stage != "Animations" || Item == "Sampling bones";
    if (Times.InFit && EndsFit) {
        Times.Fitting += std::chrono::duration<double>(Now - Times.FitStart).count();
        Times.FittingCPU += ProcessSeconds() - Times.FitStartCPU;
        Times.InFit = false;
    }
    if (Stage == "Animations" && Item == "Compressing bones") {
        Times.InFit = true;
        Times.FitStart = Now;
        Times.FitStartCPU = ProcessSeconds();
    }
    Times.Last = Now;
    Times.Position = Report->Position;
    Times.Stage = Stage;
    Times.Item = Item;
}

struct file_deleter
{
    void operator()(loaded_file *File) const { FreeLoadedFile(File); }
};

// Curve bytes over transform tracks times seconds of animation.
double BytesPerBoneSecond(file_info const &Info)
{
    double Bytes = 0.0, BoneSeconds = 0.0;
    for (int32 A = 0; A < Info.AnimationCount; ++A) {
        animation const *Animation = Info.Animations[A];
        for (int32 G = 0; Animation && G < Animation->TrackGroupCount; ++G) {
            track_group const &Group = *Animation->TrackGroups[G];
            for (int32 T = 0; T < Group.TransformTrackCount; ++T) {
                transform_track const &Track = Group.TransformTracks[T];
                for (curve2 const *Curve : {&Track.PositionCurve, &Track.OrientationCurve, &Track.ScaleShearCurve})
                    if (Curve->CurveData.Object && !CurveIsIdentity(*Curve))
                        Bytes += GetCurveSize(*Curve) - (int32)sizeof(curve2);
            }
            BoneSeconds += (double)Group.TransformTrackCount * Animation->Duration;
        }
    }
    return BoneSeconds > 0 ? Bytes / BoneSeconds : 0.0;
}

} // namespace

int main(int ArgumentCount, char **Arguments)
{
    std::string const Root = TESSEL_SHARED_FBX_DIR;
    std::vector<std::string> Files;
    for (int Index = 1; Index < ArgumentCount; ++Index) Files.push_back(Arguments[Index]);
    if (Files.empty()) {
        Files = {"cmu-mocap-isaacgym/isaacgymenvs/tasks/amp/poselib/data/01_01_cmu.fbx",
                 "cmu-mocap-isaacgym/isaacgymenvs/tasks/amp/poselib/data/49_08_cmu.fbx",
                 "cmu-mocap-isaacgym/isaacgymenvs/tasks/amp/poselib/data/55_01_cmu.fbx",
                 "quaternius-kenney/FreeModels by Quaternius[Patreon]/Characters and Animals/Alien Animated - April "
                 "2019/FBX/Alien.fbx"};
    }
    std::string const Output = "/tmp/bench_animation_" + std::to_string((long)getpid()) + ".ts2";
    printf("%-24s %7s %9s %9s %9s %8s %10s %13s %9s %9s\n", "file", "workers", "export s", "anim s", "fit s",
           "speed-up", "fit cores", "B/bone/s", "largest", "p99");
    for (std::string const &Relative : Files) {
        std::string Path = Relative[0] == '/' ? Relative : Root + "/" + Relative;
        std::string Short = Relative.substr(Relative.rfind('/') + 1);
        json Reference;
        bool HasReference = ReadJson(Root + "/reference/" + Relative + ".json", Reference);
        double BaselineFit = 0.0;
        for (int32 Workers : {1, 2}) {
            SetCompressionThreadCount(Workers);
            Times = stage_times();
            Times.Last = clock_type::now();
            clock_type::time_point Start = clock_type::now();
            bool Written = ExportFBXFile(Path.c_str(), Output.c_str(), nullptr, Progress);
            double Seconds = Since(Start);
            if (!Written) {
                printf("%-24.24s %7d  export failed\n", Short.c_str(), Workers);
                continue;
            }
            std::unique_ptr<loaded_file, file_deleter> File(LoadFileFromDisk(Output.c_str()));
            remove(Output.c_str());
            file_info const *Info =
                File ? (file_info const *)GetLoadedFileRootObjectOfType(*File, FileInfoType) : nullptr;
            double Rate = Info ? BytesPerBoneSecond(*Info) : 0.0;
            file_errors Errors;
            if (Info && HasReference) Errors = CompareWithReference(*Info, Reference);
            if (Workers == 1) BaselineFit = Times.Fitting;
            double SpeedUp = Times.Fitting > 0 ? BaselineFit / Times.Fitting : 0.0;
            double Cores = Times.Fitting > 0 ? Times.FittingCPU / Times.Fitting : 0.0;
            printf("%-24.24s %7d %9.3f %9.3f %9.3f %8.2f %10.2f %13.1f %9.3g %9.3g\n", Short.c_str(), Workers, Seconds,
                   Times.Animations, Times.Fitting, SpeedUp, Cores, Rate, Errors.Largest(), Errors.Percentile99());
        }
    }
    SetCompressionThreadCount(0);
    return 0;
}
