// tessel anim-report IN.fbx [--animdefs F] [--settings F] [--svg OUT.svg] [--json] [--threads N]
//
// Exports a scene to a scratch file and reports, per animation and per bone,
// what its curves cost and how far the virtual points of every bone, composed
// through the whole chain, land from the source samples.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <rapidxml/rapidxml.hpp>

#include "animation/tessel_compression_queue.h"
#include "animation/tessel_world_error_budget.h"
#include "fbx_tool/fbx_tessel.h"
#include "format/tessel_file_reader.h"
#include "foundation/tessel_log.h"
#include "tessel_commands.h"

namespace {

void PrintUsage(FILE *Stream)
{
    fprintf(Stream, "usage: tessel anim-report INPUT.fbx [--animdefs FILE] [--settings FILE] [--svg OUT.svg] [--json]\n"
                    "                          [--threads N]\n"
                    "\n"
                    "Exports the scene (to a scratch file that is deleted) and reports its bone animation: per\n"
                    "animation and bone, the format, degree, knots and bytes of the position, orientation and\n"
                    "scale/shear curves, and the largest and 99th-percentile world error of the bone's virtual\n"
                    "points (the 'Virtual vertex distance' from the bone along its three axes, 3 cm by default)\n"
                    "against the source samples, at every sample, through the whole chain. Totals per animation:\n"
                    "curve bytes per bone per second of animation, before and after section compression.\n"
                    "\n"
                    "options:\n"
                    "  --animdefs FILE  animation definitions, as for 'tessel export'\n"
                    "  --settings FILE  settings file, as for 'tessel export' (e.g. with \"Maximum world error\")\n"
                    "  --svg FILE       write a chart per animation: error over time of the worst bones, and\n"
                    "                   bytes per bone\n"
                    "  --json           print JSON instead of text\n"
                    "  --threads N      curve fitting workers, 1 to 64; the figures are the same for any N\n"
                    "  -h, --help       show this text\n");
}

void PrintLog(int32 Level, int32, char const *, int32, char const *Message, void *)
{
    if (Level >= LogLevel_Warning) fprintf(stderr, "tessel anim-report: %s\n", Message);
}

struct totals
{
    int64 Bytes = 0;
    int32 Bones = 0;
    double Largest = 0.0;
    double Percentile99 = 0.0;
    double BytesPerBoneSecond = 0.0;
};

totals Summarize(world_error_animation_figures const &A)
{
    totals T;
    std::vector<float> All;
    for (auto const &M : A.Models) {
        for (auto const &B : M.Bones) {
            T.Bytes += B.Bytes;
            ++T.Bones;
            T.Largest = std::max(T.Largest, B.Largest);
            All.insert(All.end(), B.Error.begin(), B.Error.end());
        }
    }
    if (!All.empty()) {
        size_t Index = (size_t)std::floor(0.99 * (double)(All.size() - 1));
        std::nth_element(All.begin(), All.begin() + (long)Index, All.end());
        T.Percentile99 = All[Index];
    }
    double BoneSeconds = (double)T.Bones * A.Duration;
    T.BytesPerBoneSecond = BoneSeconds > 0 ? (double)T.Bytes / BoneSeconds : 0.0;
    return T;
}

std::string JsonString(std::string const &Text)
{
    std::string Result = "\"";
    for (char c : Text) {
        if (c == '"' || c == '\\') {
            Result += '\\';
            Result += c;
        } else if ((unsigned char)c < 0x20) {
            char Escape[8];
            snprintf(Escape, sizeof(Escape), "\\u%04x", (unsigned)(unsigned char)c);
            Result += Escape;
        } else {
            Result += c;
        }
    }
    return Result + "\"";
}

std::string XmlText(std::string const &Text)
{
    std::string Result;
    for (char c : Text) {
        if (c == '<')
            Result += "&lt;";
        else if (c == '>')
            Result += "&gt;";
        else if (c == '&')
            Result += "&amp;";
        else if (c == '"')
            Result += "&quot;";
        else
            Result += c;
    }
    return Result;
}

std::string Number(double Value)
{
    char Text[32];
    snprintf(Text, sizeof(Text), "%.6g", Value);
    return Text;
}

// Three significant digits, for the chart's labels.
std::string Short(double Value)
{
    char Text[32];
    snprintf(Text, sizeof(Text), "%.3g", Value);
    return Text;
}

char const *const KindNames[3] = {"position", "orientation", "scale_shear"};

void PrintText(world_error_animation_figures const &A, totals const &T, double CompressionRatio)
{
    printf("animation \"%s\": %.4g s, %d samples, ", A.Name.c_str(), A.Duration,
           (int)(A.TimeStep > 0 ? std::lround(A.Duration / A.TimeStep) + 1 : 0));
    if (A.MaxError > 0)
        printf("maximum world error %.6g (%d refit rounds)", A.MaxError, A.Rounds);
    else
        printf("no world error budget");
    printf(", virtual points %.4g from each bone\n", A.VirtualDistance);
    for (auto const &M : A.Models) {
        if (M.Bones.empty()) continue;
        printf("  model \"%s\": %d bones\n", M.Name.c_str(), (int)M.Bones.size());
        printf("    %-24s %-26s %-26s %-26s %8s %11s %11s\n", "bone", "position", "orientation", "scale/shear", "bytes",
               "largest", "p99");
        for (auto const &B : M.Bones) {
            std::string Cells[3];
            for (int k = 0; k < 3; ++k) {
                world_error_curve_figures const &C = B.Curves[k];
                Cells[k] = C.Format + " d" + std::to_string(C.Degree) + " " + std::to_string(C.KnotCount) + "k";
            }
            printf("    %-24.24s %-26s %-26s %-26s %8d %11.4g %11.4g\n", B.Name.c_str(), Cells[0].c_str(),
                   Cells[1].c_str(), Cells[2].c_str(), B.Bytes, B.Largest, B.Percentile99);
        }
    }
    printf("  total: %lld curve bytes for %d bones, %.1f bytes per bone per second (%.1f after section "
           "compression), largest error %.4g, p99 %.4g\n",
           (long long)T.Bytes, T.Bones, T.BytesPerBoneSecond, T.BytesPerBoneSecond * CompressionRatio, T.Largest,
           T.Percentile99);
    for (std::string const &Line : A.Unmet) printf("  over the budget: %s\n", Line.c_str());
}

std::string Json(std::vector<world_error_animation_figures> const &Report, char const *Input, double CompressionRatio)
{
    std::string J = "{\"file\": " + JsonString(Input) + ", \"section_compression_ratio\": " + Number(CompressionRatio) +
                    ", \"animations\": [";
    for (size_t a = 0; a < Report.size(); ++a) {
        world_error_animation_figures const &A = Report[a];
        totals T = Summarize(A);
        J += a ? ", " : "";
        J += "{\"name\": " + JsonString(A.Name) + ", \"duration\": " + Number(A.Duration) +
             ", \"time_step\": " + Number(A.TimeStep) + ", \"maximum_world_error\": " + Number(A.MaxError) +
             ", \"virtual_vertex_distance\": " + Number(A.VirtualDistance) +
             ", \"refit_rounds\": " + std::to_string(A.Rounds) + ", \"bones\": " + std::to_string(T.Bones) +
             ", \"curve_bytes\": " + std::to_string(T.Bytes) +
             ", \"bytes_per_bone_second\": " + Number(T.BytesPerBoneSecond) +
             ", \"compressed_bytes_per_bone_second\": " + Number(T.BytesPerBoneSecond * CompressionRatio) +
             ", \"largest_error\": " + Number(T.Largest) + ", \"p99_error\": " + Number(T.Percentile99) +
             ", \"over_budget\": [";
        for (size_t u = 0; u < A.Unmet.size(); ++u) J += (u ? ", " : "") + JsonString(A.Unmet[u]);
        J += "], \"models\": [";
        for (size_t m = 0; m < A.Models.size(); ++m) {
            auto const &M = A.Models[m];
            J += (m ? ", " : "") + std::string("{\"name\": ") + JsonString(M.Name) + ", \"bones\": [";
            for (size_t b = 0; b < M.Bones.size(); ++b) {
                auto const &B = M.Bones[b];
                J += (b ? ", " : "") + std::string("{\"name\": ") + JsonString(B.Name);
                for (int k = 0; k < 3; ++k) {
                    auto const &C = B.Curves[k];
                    J += ", \"" + std::string(KindNames[k]) + "\": {\"format\": " + JsonString(C.Format) +
                         ", \"degree\": " + std::to_string(C.Degree) + ", \"knots\": " + std::to_string(C.KnotCount) +
                         ", \"bytes\": " + std::to_string(C.Bytes) + "}";
                }
                J += ", \"bytes\": " + std::to_string(B.Bytes) + ", \"largest_error\": " + Number(B.Largest) +
                     ", \"p99_error\": " + Number(B.Percentile99) + ", \"refits\": " + std::to_string(B.Refits) + "}";
            }
            J += "]}";
        }
        J += "]}";
    }
    return J + "]}\n";
}

// Per animation two panels: the error over time of the five worst bones (the
// budget as a dashed line), and bytes per bone as bars, largest first.
std::string Svg(std::vector<world_error_animation_figures> const &Report)
{
    static char const *const Colors[] = {"#d62728", "#1f77b4", "#2ca02c", "#ff7f0e", "#9467bd"};
    double const Width = 960, PlotLeft = 70, PlotWidth = 860, LineHeight = 260, BarRow = 14;
    std::string Body;
    double Top = 10;
    for (auto const &A : Report) {
        std::vector<world_error_bone_figures const *> Bones;
        for (auto const &M : A.Models)
            for (auto const &B : M.Bones) Bones.push_back(&B);
        if (Bones.empty()) continue;
        totals T = Summarize(A);
        Body += "<text x=\"10\" y=\"" + Number(Top + 16) + "\" font-size=\"15\" font-weight=\"bold\">" +
                XmlText(A.Name) + ": " + Short(T.BytesPerBoneSecond) + " bytes/bone/s, largest error " +
                Short(T.Largest) + ", p99 " + Short(T.Percentile99) +
                (A.MaxError > 0 ? ", budget " + Number(A.MaxError) : std::string(", no budget")) + "</text>\n";
        Top += 30;
        // Error over time.
        std::vector<world_error_bone_figures const *> Worst = Bones;
        std::stable_sort(Worst.begin(), Worst.end(),
                         [](auto const *a, auto const *b) { return a->Largest > b->Largest; });
        if (Worst.size() > 5) Worst.resize(5);
        double Ceiling = std::max(A.MaxError, Worst[0]->Largest);
        if (!(Ceiling > 0)) Ceiling = 1;
        double const PlotTop = Top, PlotBottom = Top + LineHeight - 40;
        auto Y = [&](double Value) { return PlotBottom - (PlotBottom - PlotTop) * std::min(Value / Ceiling, 1.0); };
        Body += "<rect x=\"" + Number(PlotLeft) + "\" y=\"" + Number(PlotTop) + "\" width=\"" + Number(PlotWidth) +
                "\" height=\"" + Number(PlotBottom - PlotTop) + "\" fill=\"none\" stroke=\"#888\"/>\n";
        for (int Tick = 0; Tick <= 4; ++Tick) {
            double Value = Ceiling * Tick / 4.0;
            Body += "<text x=\"" + Number(PlotLeft - 5) + "\" y=\"" + Number(Y(Value) + 4) +
                    "\" font-size=\"10\" text-anchor=\"end\">" + Short(Value) + "</text>\n";
        }
        Body += "<text x=\"" + Number(PlotLeft + PlotWidth / 2) + "\" y=\"" + Number(PlotBottom + 28) +
                "\" font-size=\"11\" text-anchor=\"middle\">time (s), 0 to " + Number(A.Duration) +
                "; world error of the five worst bones</text>\n";
        if (A.MaxError > 0) {
            Body += "<line x1=\"" + Number(PlotLeft) + "\" x2=\"" + Number(PlotLeft + PlotWidth) + "\" y1=\"" +
                    Number(Y(A.MaxError)) + "\" y2=\"" + Number(Y(A.MaxError)) +
                    "\" stroke=\"#000\" stroke-dasharray=\"6,4\"/>\n";
        }
        for (size_t w = 0; w < Worst.size(); ++w) {
            std::vector<float> const &E = Worst[w]->Error;
            if (E.empty()) continue;
            // At most one point per pixel column: the largest error in it.
            int Columns = (int)PlotWidth;
            std::string Points;
            for (int c = 0; c < Columns; ++c) {
                size_t Begin = E.size() * (size_t)c / (size_t)Columns,
                       End = E.size() * (size_t)(c + 1) / (size_t)Columns;
                if (End <= Begin) continue;
                float Most = *std::max_element(E.begin() + (long)Begin, E.begin() + (long)End);
                Points += Number(PlotLeft + c) + "," + Number(Y(Most)) + " ";
            }
            Body += "<polyline fill=\"none\" stroke-width=\"1\" stroke=\"" + std::string(Colors[w]) + "\" points=\"" +
                    Points + "\"/>\n";
            Body += "<text x=\"" + Number(PlotLeft + 8) + "\" y=\"" + Number(PlotTop + 14 + 13 * (double)w) +
                    "\" font-size=\"11\" fill=\"" + Colors[w] + "\">" + XmlText(Worst[w]->Name) + " (largest " +
                    Short(Worst[w]->Largest) + ")</text>\n";
        }
        Top += LineHeight;
        // Bytes per bone.
        std::vector<world_error_bone_figures const *> ByBytes = Bones;
        std::stable_sort(ByBytes.begin(), ByBytes.end(),
                         [](auto const *a, auto const *b) { return a->Bytes > b->Bytes; });
        double Most = std::max(1, ByBytes[0]->Bytes);
        double const Scale = A.Duration > 0 ? 1.0 / A.Duration : 1.0;
        Body +=
            "<text x=\"10\" y=\"" + Number(Top) + "\" font-size=\"12\">curve bytes per second of each bone</text>\n";
        Top += 8;
        for (auto const *B : ByBytes) {
            double W = (PlotWidth - 120) * (double)B->Bytes / Most;
            Body += "<text x=\"" + Number(PlotLeft + 60) + "\" y=\"" + Number(Top + 10) +
                    "\" font-size=\"10\" text-anchor=\"end\">" + XmlText(B->Name) + "</text>\n";
            Body += "<rect x=\"" + Number(PlotLeft + 65) + "\" y=\"" + Number(Top + 2) + "\" width=\"" + Number(W) +
                    "\" height=\"" + Number(BarRow - 4) + "\" fill=\"#4c78a8\"/>\n";
            Body += "<text x=\"" + Number(PlotLeft + 70 + W) + "\" y=\"" + Number(Top + 10) + "\" font-size=\"10\">" +
                    Short(B->Bytes * Scale) + "</text>\n";
            Top += BarRow;
        }
        Top += 30;
    }
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + Number(Width) + "\" height=\"" + Number(Top) +
           "\" font-family=\"sans-serif\">\n<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n" + Body +
           "</svg>\n";
}

} // namespace

int RunAnimReportCommand(int ArgumentCount, char **Arguments)
{
    if (WantsHelp(ArgumentCount, Arguments)) {
        PrintUsage(stdout);
        return 0;
    }
    char const *Input = 0, *AnimationDefPath = 0, *SettingsPath = 0, *SvgPath = 0;
    bool AsJson = false;
    for (int Index = 0; Index < ArgumentCount; ++Index) {
        char const *Argument = Arguments[Index];
        if (!strcmp(Argument, "--animdefs") || !strcmp(Argument, "--settings") || !strcmp(Argument, "--svg")) {
            if (Index + 1 >= ArgumentCount) {
                fprintf(stderr, "tessel anim-report: %s needs a file name\n", Argument);
                return 2;
            }
            char const *Value = Arguments[++Index];
            if (Argument[2] == 'a')
                AnimationDefPath = Value;
            else if (Argument[3] == 'e')
                SettingsPath = Value;
            else
                SvgPath = Value;
        } else if (!strcmp(Argument, "--json")) {
            AsJson = true;
        } else if (!strcmp(Argument, "--threads")) {
            char *End = 0;
            long Count = Index + 1 < ArgumentCount ? strtol(Arguments[Index + 1], &End, 10) : 0;
            if (!End || *End || Count < 1 || Count > 64) {
                fprintf(stderr, "tessel anim-report: --threads needs a number from 1 to 64\n");
                return 2;
            }
            SetCompressionThreadCount((int32)Count);
            ++Index;
        } else if (Argument[0] == '-' && Argument[1]) {
            fprintf(stderr, "tessel anim-report: unknown option '%s'\n\n", Argument);
            PrintUsage(stderr);
            return 2;
        } else if (!Input) {
            Input = Argument;
        } else {
            fprintf(stderr, "tessel anim-report: too many arguments\n\n");
            PrintUsage(stderr);
            return 2;
        }
    }
    if (!Input) {
        PrintUsage(stderr);
        return 2;
    }
    for (char const *Path : {Input, AnimationDefPath, SettingsPath}) {
        if (Path && access(Path, R_OK) != 0) {
            fprintf(stderr, "tessel anim-report: cannot read %s\n", Path);
            return 1;
        }
    }
    char Scratch[] = "/tmp/tessel-anim-report-XXXXXX";
    int Descriptor = mkstemp(Scratch);
    if (Descriptor < 0) {
        fprintf(stderr, "tessel anim-report: cannot make a scratch file in /tmp\n");
        return 1;
    }
    close(Descriptor);

    std::vector<world_error_animation_figures> Report;
    SetWorldErrorReport(&Report);
    SetLogCallback(PrintLog, 0);
    export_options Options;
    Options.SourceFileToEmbed = 0;
    Options.ShowProgress = false;
    Options.SettingsFileName = SettingsPath;
    bool Accepted = false, Exported = false;
    try {
        Accepted = ExportFBXFileWithOptions(Input, Scratch, AnimationDefPath, Options, 0, &Exported);
    } catch (rapidxml::parse_error const &Error) {
        fprintf(stderr, "tessel anim-report: malformed AnimationDef file %s: %s\n", AnimationDefPath, Error.what());
    }
    SetLogCallback(0, 0);
    SetWorldErrorReport(0);
    double Ratio = Accepted && Exported ? GetSectionCompressionRatio(Scratch) : 1.0;
    remove(Scratch);
    if (!Accepted || !Exported) {
        fprintf(stderr, "tessel anim-report: the export of %s failed\n", Input);
        return 1;
    }
    if (AsJson) {
        fputs(Json(Report, Input, Ratio).c_str(), stdout);
    } else {
        if (Report.empty()) printf("%s has no bone animation\n", Input);
        for (auto const &A : Report) PrintText(A, Summarize(A), Ratio);
    }
    if (SvgPath) {
        FILE *Out = fopen(SvgPath, "wb");
        std::string Text = Svg(Report);
        if (!Out || fwrite(Text.data(), 1, Text.size(), Out) != Text.size()) {
            if (Out) fclose(Out);
            fprintf(stderr, "tessel anim-report: cannot write %s\n", SvgPath);
            return 1;
        }
        fclose(Out);
    }
    return 0;
}
