// The reference figures of the shared FBX files for animation: a small
// JSON reader for reference/<file>.json and the comparison of an exported
// file's curves, composed through each skeleton, with the reference world
// matrices of the animated bones. Shared by the tests and the benchmark.
#pragma once

#include "animation/tessel_track_group.h"
#include "format/tessel_schema.h"
#include "geometry/tessel_transform.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

namespace animation_reference {

// Just enough JSON for the reference files.
struct json
{
    enum kind
    {
        Null,
        Number,
        String,
        Array,
        Object
    } Kind = Null;
    double Value = 0.0;
    std::string Text;
    std::vector<json> Items;
    std::vector<std::pair<std::string, json>> Members;

    json const *Find(char const *Key) const
    {
        for (auto const &Member : Members)
            if (Member.first == Key) return &Member.second;
        return nullptr;
    }
};

struct json_parser
{
    char const *At;
    char const *End;

    void Skip()
    {
        while (At < End && (*At == ' ' || *At == '\n' || *At == '\r' || *At == '\t')) ++At;
    }
    std::string ParseString()
    {
        std::string Result;
        ++At;
        while (At < End && *At != '"') {
            if (*At == '\\' && At + 1 < End) {
                ++At;
                if (*At == 'u') {
                    At += 4; // names here are plain: keep a marker
                    Result += '?';
                } else {
                    Result += *At == 'n' ? '\n' : *At == 't' ? '\t' : *At;
                }
            } else {
                Result += *At;
            }
            ++At;
        }
        ++At;
        return Result;
    }
    json Parse()
    {
        json Value;
        Skip();
        if (At >= End) return Value;
        if (*At == '{') {
            Value.Kind = json::Object;
            ++At;
            for (Skip(); At < End && *At != '}'; Skip()) {
                if (*At == ',') {
                    ++At;
                    continue;
                }
                std::string Key = ParseString();
                Skip();
                ++At; // ':'
                Value.Members.emplace_back(Key, Parse());
            }
            ++At;
        } else if (*At == '[') {
            Value.Kind = json::Array;
            ++At;
            for (Skip(); At < End && *At != ']'; Skip()) {
                if (*At == ',') {
                    ++At;
                    continue;
                }
                Value.Items.push_back(Parse());
            }
            ++At;
        } else if (*At == '"') {
            Value.Kind = json::String;
            Value.Text = ParseString();
        } else if (*At == 'n' || *At == 't' || *At == 'f') {
            while (At < End && isalpha((unsigned char)*At)) ++At;
        } else {
            char *Stop = nullptr;
            Value.Kind = json::Number;
            Value.Value = strtod(At, &Stop);
            At = Stop > At ? Stop : At + 1;
        }
        return Value;
    }
};

inline bool ReadJson(std::string const &Path, json &Result)
{
    std::ifstream In(Path, std::ios::binary);
    if (!In) return false;
    std::string Text((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
    json_parser Parser = {Text.data(), Text.data() + Text.size()};
    Result = Parser.Parse();
    return Result.Kind == json::Object;
}

// Column-vector 3x4 world of a row-vector 4x4.
inline void ToColumn3x4(real32 const *Row4x4, double *Column3x4)
{
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) Column3x4[r * 4 + c] = Row4x4[c * 4 + r];
        Column3x4[r * 4 + 3] = Row4x4[12 + r];
    }
}

struct file_errors
{
    std::vector<double> Errors; // per bone and time, relative to the skeleton's size
    int Compared = 0;
    double Largest() const { return Errors.empty() ? 0.0 : *std::max_element(Errors.begin(), Errors.end()); }
    double Percentile99() const
    {
        if (Errors.empty()) return 0.0;
        std::vector<double> Sorted = Errors;
        std::sort(Sorted.begin(), Sorted.end());
        return Sorted[(size_t)std::floor(0.99 * (double)(Sorted.size() - 1))];
    }
};

// Every reference take that has an animation of the same name; each of its
// animated nodes that is a bone of a group's skeleton, at each reference
// time measured from the take's start. The error is that of points 5 % of
// the skeleton's size away from the bone along its three axes (as far in
// the reference pose, whatever the bone's scale), relative to that size.
inline file_errors CompareWithReference(file_info const &Info, json const &Reference)
{
    file_errors Result;
    json const *Takes = Reference.Find("animations");
    if (!Takes) return Result;
    for (json const &Take : Takes->Items) {
        json const *Name = Take.Find("name");
        animation const *Animation = nullptr;
        for (int32 A = 0; A < Info.AnimationCount && Name; ++A)
            if (Info.Animations[A] && Info.Animations[A]->Name && Name->Text == Info.Animations[A]->Name)
                Animation = Info.Animations[A];
        json const *Times = Take.Find("times");
        json const *Nodes = Take.Find("nodes");
        json const *Begin = Take.Find("time_begin");
        if (!Animation || !Times || !Nodes || !Begin) continue;
        for (int32 G = 0; G < Animation->TrackGroupCount; ++G) {
            track_group const &Group = *Animation->TrackGroups[G];
            skeleton const *Skeleton = nullptr;
            for (int32 M = 0; M < Info.ModelCount; ++M)
                if (Info.Models[M]->Name && Group.Name && strcmp(Info.Models[M]->Name, Group.Name) == 0)
                    Skeleton = Info.Models[M]->Skeleton;
            if (!Skeleton || Skeleton->BoneCount < 1) continue;
            // A name the reference gives two nodes can't be matched to a bone.
            std::map<std::string, json const *> Worlds;
            std::map<std::string, int> Uses;
            for (json const &Node : Nodes->Items) {
                json const *NodeName = Node.Find("name");
                json const *World = Node.Find("world");
                if (NodeName && World && ++Uses[NodeName->Text] == 1) Worlds[NodeName->Text] = World;
            }
            for (auto const &Use : Uses)
                if (Use.second > 1) Worlds.erase(Use.first);
            // The skeleton's size: the box of the reference positions of
            // its bones over the take.
            double Low[3] = {1e30, 1e30, 1e30}, High[3] = {-1e30, -1e30, -1e30};
            for (int32 B = 0; B < Skeleton->BoneCount; ++B) {
                auto Found = Worlds.find(Skeleton->Bones[B].Name ? Skeleton->Bones[B].Name : "");
                if (Found == Worlds.end()) continue;
                for (json const &M : Found->second->Items)
                    for (int i = 0; i < 3 && M.Items.size() == 12; ++i) {
                        Low[i] = std::min(Low[i], M.Items[(size_t)i * 4 + 3].Value);
                        High[i] = std::max(High[i], M.Items[(size_t)i * 4 + 3].Value);
                    }
            }
            double Size = 0.0;
            for (int i = 0; i < 3; ++i) Size += High[i] > Low[i] ? (High[i] - Low[i]) * (High[i] - Low[i]) : 0.0;
            Size = std::sqrt(Size);
            if (!(Size > 1e-6)) continue;
            double Reach = 0.05 * Size;
            std::vector<real32> Composed((size_t)Skeleton->BoneCount * 16);
            for (size_t T = 0; T < Times->Items.size(); ++T) {
                real32 t = (real32)(Times->Items[T].Value - Begin->Value);
                t = std::min(std::max(t, 0.0f), Animation->Duration);
                real32 Placement[16];
                BuildCompositeTransform4x4(Group.InitialPlacement, Placement);
                for (int32 B = 0; B < Skeleton->BoneCount; ++B) {
                    bone const &Bone = Skeleton->Bones[B];
                    transform Local = Bone.Transform;
                    int32 Index = -1;
                    if (FindTrackByName(&Group, Bone.Name, Index))
                        SampleTransformTrack(Group.TransformTracks[Index], Animation->Duration, t, Local);
                    real32 LocalMatrix[16];
                    BuildCompositeTransform4x4(Local, LocalMatrix);
                    real32 const *Parent = Bone.ParentIndex >= 0 && Bone.ParentIndex < B
                                               ? &Composed[(size_t)Bone.ParentIndex * 16]
                                               : Placement;
                    MatrixMultiply4x4(LocalMatrix, Parent, &Composed[(size_t)B * 16]);
                    auto Found = Worlds.find(Bone.Name ? Bone.Name : "");
                    if (Found == Worlds.end() || T >= Found->second->Items.size()) continue;
                    json const &Expected = Found->second->Items[T];
                    if (Expected.Items.size() != 12) continue;
                    double Mine[12];
                    ToColumn3x4(&Composed[(size_t)B * 16], Mine);
                    double Worst = 0.0;
                    for (int Axis = 0; Axis < 3; ++Axis) {
                        // The bone's axis scaled so that the reference puts
                        // the point Reach away from the bone.
                        double Length = 0.0;
                        for (int r = 0; r < 3; ++r)
                            Length +=
                                Expected.Items[(size_t)r * 4 + Axis].Value * Expected.Items[(size_t)r * 4 + Axis].Value;
                        double Step = Length > 1e-24 ? Reach / std::sqrt(Length) : 0.0;
                        double Distance = 0.0;
                        for (int r = 0; r < 3; ++r) {
                            double a = Mine[r * 4 + Axis] * Step + Mine[r * 4 + 3];
                            double b = Expected.Items[(size_t)r * 4 + Axis].Value * Step +
                                       Expected.Items[(size_t)r * 4 + 3].Value;
                            Distance += (a - b) * (a - b);
                        }
                        Worst = std::max(Worst, std::sqrt(Distance));
                    }
                    Result.Errors.push_back(Worst / Size);
                }
            }
            ++Result.Compared;
        }
    }
    return Result;
}

} // namespace animation_reference
