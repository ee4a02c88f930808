#include "fbx_tool/fbx_tessel_tool_interface.h"

#include "fbx_tool/fbx_tessel_tool_extras.h"
#include "fbx_tool/fbx_tessel_tool_geometry.h"
#include "fbx_tool/fbx_tessel_tool_sampling.h"

// The FBX records behind the core's handles. Each operation of the table is
// the FBX function of the same name, reached through a thunk that turns the
// handles the core passes into the FBX records they are.
namespace {

template <typename Type>
struct fbx_record
{
    using core = Type;
};
template <>
struct fbx_record<fbx_tool_interface *>
{
    using core = tool_interface *;
};
template <>
struct fbx_record<fbx_mesh_data *>
{
    using core = tool_mesh_data *;
};
template <>
struct fbx_record<fbx_mesh_skin *>
{
    using core = tool_mesh_skin *;
};
template <>
struct fbx_record<fbx_triangle_iterator *>
{
    using core = tool_triangle_iterator *;
};

template <typename Function, Function Target>
struct fbx_thunk;

template <typename Result, typename... Arguments, Result (*Target)(Arguments...)>
struct fbx_thunk<Result (*)(Arguments...), Target>
{
    static typename fbx_record<Result>::core Call(typename fbx_record<Arguments>::core... Values)
    {
        return Target(static_cast<Arguments>(Values)...);
    }
};

#define FBX_OPERATION(Name) &fbx_thunk<decltype(&fbx_tool::Name), &fbx_tool::Name>::Call

tool_operations MakeFBXToolOperations()
{
    tool_operations Operations = {};
    Operations.BuildSceneGraph = FBX_OPERATION(BuildSceneGraph);
    Operations.ReleaseSceneGraph = FBX_OPERATION(ReleaseSceneGraph);
    Operations.GetArtToolName = FBX_OPERATION(GetArtToolName);
    Operations.GetArtToolVersion = FBX_OPERATION(GetArtToolVersion);
    Operations.AddArtToolInfoData = FBX_OPERATION(AddArtToolInfoData);
    Operations.GetSourceFileName = FBX_OPERATION(GetSourceFileName);
    Operations.GetCoordinateSystem = FBX_OPERATION(GetCoordinateSystem);
    Operations.ResetToolTime = FBX_OPERATION(ResetToolTime);
    Operations.IsVertexAnimation = FBX_OPERATION(IsVertexAnimation);
    Operations.GetNodeName = FBX_OPERATION(GetNodeName);
    Operations.GetMeshName = FBX_OPERATION(GetMeshName);
    Operations.GetAnimationName = FBX_OPERATION(GetAnimationName);
    Operations.GetTextureName = FBX_OPERATION(GetTextureName);
    Operations.GetMaterialName = FBX_OPERATION(GetMaterialName);
    Operations.GetNodeParent = FBX_OPERATION(GetNodeParent);
    Operations.GetNodeDepth = FBX_OPERATION(GetNodeDepth);
    Operations.AddNodeData = FBX_OPERATION(AddNodeData);
    Operations.GetMeshKind = FBX_OPERATION(GetMeshKind);
    Operations.BeginMeshData = FBX_OPERATION(BeginMeshData);
    Operations.EndMeshData = FBX_OPERATION(EndMeshData);
    Operations.GetMeshVertexCount = FBX_OPERATION(GetMeshVertexCount);
    Operations.GetMeshTriangleCount = FBX_OPERATION(GetMeshTriangleCount);
    Operations.GetMeshMaterialCount = FBX_OPERATION(GetMeshMaterialCount);
    Operations.GetMeshColorChannelCount = FBX_OPERATION(GetMeshColorChannelCount);
    Operations.GetMeshTextureCoordinateChannelCount = FBX_OPERATION(GetMeshTextureCoordinateChannelCount);
    Operations.GetVertexPosition = FBX_OPERATION(GetVertexPosition);
    Operations.GetMeshNode = FBX_OPERATION(GetMeshNode);
    Operations.AddMeshData = FBX_OPERATION(AddMeshData);
    Operations.GetPositionComponentName = FBX_OPERATION(GetPositionComponentName);
    Operations.GetBoneWeightsComponentName = FBX_OPERATION(GetBoneWeightsComponentName);
    Operations.GetBoneIndicesComponentName = FBX_OPERATION(GetBoneIndicesComponentName);
    Operations.GetNormalComponentName = FBX_OPERATION(GetNormalComponentName);
    Operations.GetTangentComponentName = FBX_OPERATION(GetTangentComponentName);
    Operations.GetBinormalComponentName = FBX_OPERATION(GetBinormalComponentName);
    Operations.GetTangentBinormalCrossComponentName = FBX_OPERATION(GetTangentBinormalCrossComponentName);
    Operations.GetColorComponentName = FBX_OPERATION(GetColorComponentName);
    Operations.GetTextureCoordinateComponentName = FBX_OPERATION(GetTextureCoordinateComponentName);
    Operations.GetMeshSkin = FBX_OPERATION(GetMeshSkin);
    Operations.ReleaseMeshSkin = FBX_OPERATION(ReleaseMeshSkin);
    Operations.GetSkinBoneCount = FBX_OPERATION(GetSkinBoneCount);
    Operations.GetSkinBoneNode = FBX_OPERATION(GetSkinBoneNode);
    Operations.GetVertexBoneCount = FBX_OPERATION(GetVertexBoneCount);
    Operations.GetVertexBoneWeight = FBX_OPERATION(GetVertexBoneWeight);
    Operations.BeginTriangles = FBX_OPERATION(BeginTriangles);
    Operations.EndTriangles = FBX_OPERATION(EndTriangles);
    Operations.HasTriangle = FBX_OPERATION(HasTriangle);
    Operations.NextTriangle = FBX_OPERATION(NextTriangle);
    Operations.GetTriangleIndex = FBX_OPERATION(GetTriangleIndex);
    Operations.GetTriangleMaterial = FBX_OPERATION(GetTriangleMaterial);
    Operations.IsTriangleTwoSided = FBX_OPERATION(IsTriangleTwoSided);
    Operations.SetTangentChannel = FBX_OPERATION(SetTangentChannel);
    Operations.GetCornerVertex = FBX_OPERATION(GetCornerVertex);
    Operations.GetCornerSource = FBX_OPERATION(GetCornerSource);
    Operations.GetCornerNormal = FBX_OPERATION(GetCornerNormal);
    Operations.GetCornerColor = FBX_OPERATION(GetCornerColor);
    Operations.GetCornerTextureCoordinates = FBX_OPERATION(GetCornerTextureCoordinates);
    Operations.GetCornerTangent = FBX_OPERATION(GetCornerTangent);
    Operations.GetCornerBinormal = FBX_OPERATION(GetCornerBinormal);
    Operations.GetTriangleAnnotation = FBX_OPERATION(GetTriangleAnnotation);
    Operations.GetVertexAnnotationCount = FBX_OPERATION(GetVertexAnnotationCount);
    Operations.GetVertexAnnotationSet = FBX_OPERATION(GetVertexAnnotationSet);
    Operations.ReleaseVertexAnnotationSet = FBX_OPERATION(ReleaseVertexAnnotationSet);
    Operations.GetVertexAnnotationName = FBX_OPERATION(GetVertexAnnotationName);
    Operations.GetVertexAnnotationType = FBX_OPERATION(GetVertexAnnotationType);
    Operations.GetVertexAnnotation = FBX_OPERATION(GetVertexAnnotation);
    Operations.GetTriangleAnnotationCount = FBX_OPERATION(GetTriangleAnnotationCount);
    Operations.GetTriangleAnnotationName = FBX_OPERATION(GetTriangleAnnotationName);
    Operations.GetTriangleAnnotationType = FBX_OPERATION(GetTriangleAnnotationType);
    Operations.GetMeshMaterials = FBX_OPERATION(GetMeshMaterials);
    Operations.ReleaseMeshMaterials = FBX_OPERATION(ReleaseMeshMaterials);
    Operations.GetMeshMaterial = FBX_OPERATION(GetMeshMaterial);
    Operations.HasMorphTargets = FBX_OPERATION(HasMorphTargets);
    Operations.GetMorphTargetCount = FBX_OPERATION(GetMorphTargetCount);
    Operations.GetMorphTargetMeshData = FBX_OPERATION(GetMorphTargetMeshData);
    Operations.GetMorphTargetName = FBX_OPERATION(GetMorphTargetName);
    Operations.GetSecondsPerFrame = FBX_OPERATION(GetSecondsPerFrame);
    Operations.GetAnimationFrameCount = FBX_OPERATION(GetAnimationFrameCount);
    Operations.SetAnimationSampleTime = FBX_OPERATION(SetAnimationSampleTime);
    Operations.SetMorphFrame = FBX_OPERATION(SetMorphFrame);
    Operations.GetMorphFrameCount = FBX_OPERATION(GetMorphFrameCount);
    Operations.GetMorphDuration = FBX_OPERATION(GetMorphDuration);
    Operations.SampleNodeTransform = FBX_OPERATION(SampleNodeTransform);
    Operations.GetNodeMatrix = FBX_OPERATION(GetNodeMatrix);
    Operations.SampleNodeRelativeTransform = FBX_OPERATION(SampleNodeRelativeTransform);
    Operations.SampleNodeBindTransform = FBX_OPERATION(SampleNodeBindTransform);
    Operations.GetMorphVertexPosition = FBX_OPERATION(GetMorphVertexPosition);
    Operations.GetMorphVertexNormal = FBX_OPERATION(GetMorphVertexNormal);
    Operations.GetMorphCornerColor = FBX_OPERATION(GetMorphCornerColor);
    Operations.GetMorphCornerTextureCoordinates = FBX_OPERATION(GetMorphCornerTextureCoordinates);
    Operations.GetVertexAnimationChannelCount = FBX_OPERATION(GetVertexAnimationChannelCount);
    Operations.SampleVertexAnimationFrame = FBX_OPERATION(SampleVertexAnimationFrame);
    Operations.GetVertexAnimationChannelName = FBX_OPERATION(GetVertexAnimationChannelName);
    Operations.GetTrackName = FBX_OPERATION(GetTrackName);
    Operations.GetTrackDimension = FBX_OPERATION(GetTrackDimension);
    Operations.SampleTrack = FBX_OPERATION(SampleTrack);
    Operations.IsTrackAlwaysKept = FBX_OPERATION(IsTrackAlwaysKept);
    Operations.GetNodeTextTrackCount = FBX_OPERATION(GetNodeTextTrackCount);
    Operations.GetNodeTextTrackEntryCount = FBX_OPERATION(GetNodeTextTrackEntryCount);
    Operations.GetNodeTextTrackEntry = FBX_OPERATION(GetNodeTextTrackEntry);
    Operations.GetRootSettings = FBX_OPERATION(GetRootSettings);
    Operations.GetFileSettings = FBX_OPERATION(GetFileSettings);
    Operations.GetTextureSettings = FBX_OPERATION(GetTextureSettings);
    Operations.GetMaterialSettings = FBX_OPERATION(GetMaterialSettings);
    Operations.GetMeshSettings = FBX_OPERATION(GetMeshSettings);
    Operations.GetModelSettings = FBX_OPERATION(GetModelSettings);
    Operations.GetBoneSettings = FBX_OPERATION(GetBoneSettings);
    Operations.GetAnimationSettings = FBX_OPERATION(GetAnimationSettings);
    Operations.GetTrackGroupSettings = FBX_OPERATION(GetTrackGroupSettings);
    Operations.GetBoneAnimationSettings = FBX_OPERATION(GetBoneAnimationSettings);
    Operations.GetSettingsBlobSize = FBX_OPERATION(GetSettingsBlobSize);
    Operations.ReadSettingsBlob = FBX_OPERATION(ReadSettingsBlob);
    Operations.ReleaseSettingsBlob = FBX_OPERATION(ReleaseSettingsBlob);
    return Operations;
}

#undef FBX_OPERATION

} // namespace

tool_operations const *GetFBXToolOperations()
{
    static tool_operations const Operations = MakeFBXToolOperations();
    return &Operations;
}
