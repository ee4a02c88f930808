"""Builds the Blender-made FBX scenes of the example and the tests.

Writes, from nothing but this script (factory settings, no .blend input):

  examples/rigged_arm.fbx               a skinned, segmented arm on a 4-bone chain,
                                        one take of 91 frames at 30 fps
  examples/rigged_arm_animdefs.xml      the take cut into "Raise", "Wave", "Lower"
  tests/data/blender/branching_rig.fbx  a 14-bone branching skeleton with angled,
                                        rolled bones under a moved and turned
                                        armature object; two actions, two takes
  tests/data/blender/tail_scale.fbx     a 5-bone tail under a scaled armature
                                        object: root motion, a non-uniformly
                                        scaled tip bone, an empty parented to a bone
  tests/data/blender/props_24fps.fbx    no skeleton: animated empties and meshes at
                                        24 fps, a non-uniformly scaled cube with a
                                        UV set and corner colors, a mesh of mixed
                                        polygon sizes with two UV sets

and next to every .fbx a .json with the values Blender itself computed (see
"What the JSON holds" below).

Regenerate, from the repository root:

    blender -b --factory-startup --python examples/make_scenes.py

then write the ASCII twin of the arm (Blender writes binary only):

    python3 examples/fbx_binary_to_ascii.py examples/rigged_arm.fbx \
        tests/data/blender/rigged_arm_ascii.fbx

and check the files against an independent reader:

    /usr/bin/python3 examples/verify_scenes.py

(Blender 3.4 from Debian; the verifier uses Debian's python3-pyassimp.)
The geometry, weights and animation are fully determined by this script; the
files still differ from run to run in the creation time stamp Blender stamps.

Export settings (the same for every file):
    axis_forward='-Z', axis_up='Y', global_scale=1, apply_unit_scale=True,
    apply_scale_options='FBX_SCALE_NONE', metric scene units with scale 1,
    add_leaf_bones=False, primary_bone_axis='Y', secondary_bone_axis='X',
    armature_nodetype='NULL', use_mesh_modifiers=False, bake_anim=True with
    step 1, simplify 0 and forced start/end keys.

What the JSON holds. Every matrix is in the FBX file's own form: 4 rows of 4,
row i the image of axis i and row 3 the translation (a point maps to
x*row0 + y*row1 + z*row2 + row3), i.e. the order of the 16 values of a
cluster's TransformLink. Everything is in the exported frame and units: Y up,
centimetres (Blender metres times 100).

    G = Scale(100) @ axis_conversion(from_forward='Y', from_up='Z',
                                     to_forward='-Z', to_up='Y')
      maps Blender world space (Z up, metres) to the file's: (x, y, z) ->
      100 * (x, z, -y). It is stored as "blender_to_fbx".
    With primary 'Y' and secondary 'X' the exporter's bone correction is the
    identity, so a bone's frame in the file is Blender's bone frame (the bone
    points along its local +Y).
    world(object) = G @ object.matrix_world
    world(bone)   = G @ armature.matrix_world @ bone.matrix_local      (rest)
                  = G @ armature.matrix_world @ pose_bone.matrix       (posed)
    local(node)   = world(parent node)^-1 @ world(node); the parent of a root
                    bone is the armature's node, of a top-level object the
                    scene root (identity).

    "nodes": every node the file holds, in export order of this script:
        name, "type" ("Null", "LimbNode" or "Mesh"), "parent" (null: scene
        root), "bind_world" (bones: rest pose; objects: their matrix at the
        first frame of the first take), "bind_local" (translation, rotation
        quaternion x y z w, rotation as XYZ Euler degrees, scale).
    "meshes": control points, polygons, polygon vertices, polygon sizes; per
        bone of the skin the number of weighted control points, the sum of
        their weights, the expected cluster Transform and TransformLink; the
        first few weights by control point; UV set and color set names with
        the values of the first 8 polygon corners (colors as sRGB, as written).
    "takes": per take its name, first and last frame, fps, and "samples": at
        every 5th frame and the last one, for every node, the local transform
        (translation, quaternion, XYZ Euler degrees, scale) and the world matrix.
    "animation_defs" (rigged_arm only): the ranges of the AnimationDef file.

Quirks seen while making these (see also verify_scenes.py):
  * The armature object becomes a "Null" node that carries G: Lcl Rotation
    (-90, 0, 0) and Lcl Scaling 100 for an unrotated armature at the origin;
    bones below it are in metres again.
  * The static Lcl values of bones are the pose at the export's frame, not the
    rest pose; the rest pose is only in the clusters and the bind pose.
  * A mesh deformed by the armature it is parented to goes to the top level of
    the file.
  * Colors are written by polygon vertex through an index array, UVs too.
  * Euler angles are only one choice among equivalent ones; compare rotations
    by quaternion (either sign) or matrix.
"""

import json
import math
import os
import re
import sys

import bpy
from bpy_extras.io_utils import axis_conversion
from mathutils import Euler, Matrix, Quaternion, Vector

SAMPLE_STEP = 5

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
G = Matrix.Scale(100.0, 4) @ axis_conversion(from_forward='Y', from_up='Z', to_forward='-Z', to_up='Y').to_4x4()


# ---------------------------------------------------------------------------
# Scene construction
# ---------------------------------------------------------------------------

def new_scene(name, frame_end):
    bpy.ops.wm.read_factory_settings(use_empty=True)
    scene = bpy.context.scene
    scene.name = name
    scene.render.fps = 30
    scene.render.fps_base = 1.0
    scene.frame_start = 0
    scene.frame_end = frame_end
    scene.unit_settings.system = 'METRIC'
    scene.unit_settings.scale_length = 1.0
    return scene


def make_armature(scene, name, bones, location=(0, 0, 0), rotation=(0, 0, 0), scale=(1, 1, 1)):
    """bones: (name, parent, head, tail, roll in degrees, connected)."""
    data = bpy.data.armatures.new(name + "_data")
    obj = bpy.data.objects.new(name, data)
    scene.collection.objects.link(obj)
    obj.location = location
    obj.rotation_euler = [math.radians(a) for a in rotation]
    obj.scale = scale
    bpy.context.view_layer.objects.active = obj
    bpy.ops.object.mode_set(mode='EDIT')
    for bone_name, parent, head, tail, roll, connected in bones:
        eb = data.edit_bones.new(bone_name)
        eb.head = head
        eb.tail = tail
        eb.roll = math.radians(roll)
        if parent:
            eb.parent = data.edit_bones[parent]
            eb.use_connect = connected
    bpy.ops.object.mode_set(mode='OBJECT')
    return obj


def segment_distance(p, a, b):
    ab = b - a
    t = max(0.0, min(1.0, (p - a).dot(ab) / ab.dot(ab)))
    return (p - (a + ab * t)).length


def make_skinned_tubes(scene, name, armature, segments, sides, radius, influences=3, falloff=0.12):
    """A mesh of closed tubes, one per (head, tail, rings) segment in armature
    space, skinned to the armature: each vertex takes its `influences` nearest
    bones (by distance to the bone segment), weighted by a Gaussian falloff and
    normalised to 1."""
    verts, faces = [], []
    for head, tail, rings in segments:
        head, tail = Vector(head), Vector(tail)
        axis = (tail - head).normalized()
        side = axis.orthogonal().normalized()
        up = axis.cross(side)
        base = len(verts)
        for r in range(rings):
            centre = head.lerp(tail, r / (rings - 1))
            for s in range(sides):
                a = 2.0 * math.pi * s / sides
                verts.append(centre + (side * math.cos(a) + up * math.sin(a)) * radius)
        for r in range(rings - 1):
            for s in range(sides):
                i0 = base + r * sides + s
                i1 = base + r * sides + (s + 1) % sides
                faces.append((i0, i1, i1 + sides, i0 + sides))
        faces.append(tuple(base + s for s in reversed(range(sides))))
        faces.append(tuple(base + (rings - 1) * sides + s for s in range(sides)))

    mesh = bpy.data.meshes.new(name + "_mesh")
    mesh.from_pydata([tuple(v) for v in verts], [], faces)
    mesh.update()
    obj = bpy.data.objects.new(name, mesh)
    scene.collection.objects.link(obj)
    obj.parent = armature
    obj.matrix_parent_inverse = Matrix.Identity(4)
    modifier = obj.modifiers.new("Armature", 'ARMATURE')
    modifier.object = armature

    bones = armature.data.bones
    groups = {b.name: obj.vertex_groups.new(name=b.name) for b in bones}
    for index, v in enumerate(verts):
        near = sorted((segment_distance(v, b.head_local, b.tail_local), b.name) for b in bones)[:influences]
        raw = [(math.exp(-(d / falloff) ** 2), n) for d, n in near]
        total = sum(w for w, _ in raw)
        if total < 1e-6:
            raw, total = [(1.0, near[0][1])], 1.0
        for w, n in raw:
            w = round(w / total, 4)
            if w > 0.0:
                groups[n].add([index], w, 'REPLACE')
    return obj


def key_pose(armature, frame, values):
    """values: bone -> dict of 'rot' (Euler degrees, XYZ), 'loc', 'scale'."""
    for bone_name, channels in values.items():
        pb = armature.pose.bones[bone_name]
        if 'rot' in channels:
            e = Euler([math.radians(a) for a in channels['rot']], 'XYZ')
            if pb.rotation_mode == 'QUATERNION':
                pb.rotation_quaternion = e.to_quaternion()
                pb.keyframe_insert("rotation_quaternion", frame=frame)
            else:
                pb.rotation_euler = e.to_matrix().to_euler(pb.rotation_mode)
                pb.keyframe_insert("rotation_euler", frame=frame)
        if 'loc' in channels:
            pb.location = channels['loc']
            pb.keyframe_insert("location", frame=frame)
        if 'scale' in channels:
            pb.scale = channels['scale']
            pb.keyframe_insert("scale", frame=frame)


def new_action(armature, name):
    if armature.animation_data is None:
        armature.animation_data_create()
    action = bpy.data.actions.new(name)
    action.use_fake_user = True
    armature.animation_data.action = action
    return action


# ---------------------------------------------------------------------------
# What Blender computes, in the file's frame
# ---------------------------------------------------------------------------

def deformed_by_parent(obj):
    """A mesh deformed by the armature it is parented to goes to the top level
    of the file, not under the armature's node."""
    return (obj.type == 'MESH' and obj.parent is not None and obj.parent.type == 'ARMATURE'
            and obj.parent_type != 'BONE'
            and any(m.type == 'ARMATURE' and m.object == obj.parent for m in obj.modifiers))


def node_list(scene):
    """(name, type, parent name, object, bone name) in a parents-first order."""
    nodes = []

    def visit(obj):
        if obj.type == 'ARMATURE':
            nodes.append((obj.name, "Null", obj.parent.name if obj.parent else None, obj, None))

            def visit_bone(bone):
                parent = bone.parent.name if bone.parent else obj.name
                nodes.append((bone.name, "LimbNode", parent, obj, bone.name))
                for child in bone.children:
                    visit_bone(child)
                for child in sorted(obj.children, key=lambda o: o.name):
                    if child.parent_type == 'BONE' and child.parent_bone == bone.name:
                        visit(child)
            for bone in obj.data.bones:
                if bone.parent is None:
                    visit_bone(bone)
            for child in sorted(obj.children, key=lambda o: o.name):
                if child.parent_type != 'BONE':
                    visit(child)
            return
        parent = None
        if obj.parent and not deformed_by_parent(obj):
            parent = obj.parent_bone if obj.parent_type == 'BONE' else obj.parent.name
        nodes.append((obj.name, "Mesh" if obj.type == 'MESH' else "Null", parent, obj, None))
        for child in sorted(obj.children, key=lambda o: o.name):
            visit(child)

    for obj in sorted(scene.objects, key=lambda o: o.name):
        if obj.parent is None:
            visit(obj)
    return nodes


def world_matrix(obj, bone_name, rest):
    if bone_name is None:
        return G @ obj.matrix_world
    if rest:
        return G @ obj.matrix_world @ obj.data.bones[bone_name].matrix_local
    return G @ obj.matrix_world @ obj.pose.bones[bone_name].matrix


def file_form(m):
    """Blender matrices act on column vectors; the file's rows are its columns."""
    return [[round(m[r][c], 6) for r in range(4)] for c in range(4)]


def trs(m, prev_euler=None):
    loc, quat, scale = m.decompose()
    euler = quat.to_euler('XYZ', prev_euler) if prev_euler is not None else quat.to_euler('XYZ')
    q = quat if quat.w >= 0 else -quat
    return {
        "translation": [round(v, 6) for v in loc],
        "rotation_quaternion_xyzw": [round(q.x, 7), round(q.y, 7), round(q.z, 7), round(q.w, 7)],
        "rotation_euler_xyz_degrees": [round(math.degrees(a), 5) for a in euler],
        "scale": [round(v, 6) for v in scale],
    }, euler


def locals_and_worlds(nodes, rest):
    worlds = {name: world_matrix(obj, bone, rest) for name, _, _, obj, bone in nodes}
    result = {}
    for name, _, parent, _, _ in nodes:
        parent_world = worlds[parent] if parent else Matrix.Identity(4)
        result[name] = (parent_world.inverted_safe() @ worlds[name], worlds[name])
    return result


def describe_meshes(scene, bind):
    """bind: node name -> (local, world) at bind time."""
    meshes = []
    for obj in sorted(scene.objects, key=lambda o: o.name):
        if obj.type != 'MESH':
            continue
        mesh = obj.data
        clusters = []
        for group in obj.vertex_groups:
            weights = [(v.index, g.weight) for v in mesh.vertices for g in v.groups if g.group == group.index]
            if weights:
                link = bind[group.name][1]
                clusters.append({"bone": group.name, "control_points": len(weights),
                                 "weight_sum": round(sum(w for _, w in weights), 4),
                                 "transform": file_form(link.inverted_safe() @ bind[obj.name][1]),
                                 "transform_link": file_form(link)})
        first = []
        for v in mesh.vertices[:6]:
            first.append({obj.vertex_groups[g.group].name: round(g.weight, 4) for g in v.groups})
        sizes = {}
        for p in mesh.polygons:
            sizes[str(len(p.vertices))] = sizes.get(str(len(p.vertices)), 0) + 1
        corners = min(8, len(mesh.loops))
        meshes.append({
            "name": obj.name,
            "control_points": len(mesh.vertices),
            "polygons": len(mesh.polygons),
            "polygon_vertices": sum(len(p.vertices) for p in mesh.polygons),
            "polygon_sizes": sizes,
            "first_corner_control_points": [mesh.loops[i].vertex_index for i in range(corners)],
            "clusters": clusters,
            "first_weights": first,
            "uv_sets": [uv.name for uv in mesh.uv_layers],
            "first_uvs": {uv.name: [[round(c, 6) for c in uv.data[i].uv] for i in range(corners)]
                          for uv in mesh.uv_layers},
            "color_sets": [c.name for c in mesh.color_attributes],
            "first_colors": {c.name: [[round(x, 6) for x in c.data[i].color_srgb] for i in range(corners)]
                             for c in mesh.color_attributes},
        })
    return meshes


def sample_take(scene, nodes, name, start, end):
    samples = []
    prev = {}
    frames = set(range(start, end + 1, SAMPLE_STEP)) | {end}
    for frame in range(start, end + 1):
        scene.frame_set(frame)
        posed = locals_and_worlds(nodes, rest=False)
        entry = {}
        for node_name, (local, world) in posed.items():
            values, prev[node_name] = trs(local, prev.get(node_name))
            values["world"] = file_form(world)
            entry[node_name] = values
        if frame in frames:
            samples.append({"frame": frame, "nodes": entry})
    return {"name": name, "start_frame": start, "end_frame": end, "fps": scene.render.fps, "samples": samples}


def describe(scene, takes, extra=None):
    """takes: list of (take name, action or None, start, end)."""
    nodes = node_list(scene)
    first_action = takes[0][1]
    for obj in scene.objects:
        if obj.type == 'ARMATURE' and first_action is not None:
            obj.animation_data.action = first_action
    scene.frame_set(takes[0][2])
    bind = locals_and_worlds(nodes, rest=True)
    result = {
        "generator": "Blender %s, examples/make_scenes.py" % bpy.app.version_string,
        "matrix_layout": "rows are axis images, row 3 the translation (FBX AffineMatrix / TransformLink order)",
        "units": "centimetres, Y up (UnitScaleFactor 1)",
        "blender_to_fbx": file_form(G),
        "nodes": [],
        "meshes": describe_meshes(scene, bind),
        "takes": [],
    }
    for name, kind, parent, _, _ in nodes:
        local, world = bind[name]
        values, _ = trs(local)
        result["nodes"].append({"name": name, "type": kind, "parent": parent,
                                "bind_world": file_form(world), "bind_local": values})
    for take_name, action, start, end in takes:
        if action is not None:
            for obj in scene.objects:
                if obj.type == 'ARMATURE':
                    obj.animation_data.action = action
        result["takes"].append(sample_take(scene, nodes, take_name, start, end))
    if extra:
        result.update(extra)
    return result


def compact_json(data):
    """Indented JSON with every list of plain numbers on one line."""
    text = json.dumps(data, indent=1)
    return re.sub(r'\[\s+([-+0-9.eE,\s]+?)\s+\]', lambda m: "[" + " ".join(m.group(1).split()) + "]", text) + "\n"


def export(scene, path, all_actions, takes, extra=None):
    # The static values in the file are those of the frame the exporter starts at.
    scene.frame_set(scene.frame_start)
    bpy.ops.export_scene.fbx(
        filepath=path, use_selection=False, object_types={'ARMATURE', 'MESH', 'EMPTY'},
        axis_forward='-Z', axis_up='Y', global_scale=1.0, apply_unit_scale=True,
        apply_scale_options='FBX_SCALE_NONE', use_space_transform=True, bake_space_transform=False,
        use_mesh_modifiers=False, mesh_smooth_type='OFF', use_tspace=False, use_custom_props=False,
        add_leaf_bones=False, primary_bone_axis='Y', secondary_bone_axis='X',
        use_armature_deform_only=False, armature_nodetype='NULL',
        bake_anim=True, bake_anim_use_all_bones=True, bake_anim_use_nla_strips=False,
        bake_anim_use_all_actions=all_actions, bake_anim_force_startend_keying=True,
        bake_anim_step=1.0, bake_anim_simplify_factor=0.0, path_mode='AUTO', embed_textures=False,
        colors_type='SRGB')
    data = describe(scene, takes, extra)
    with open(os.path.splitext(path)[0] + ".json", "w") as f:
        f.write(compact_json(data))
    print("wrote %s (%d bytes)" % (path, os.path.getsize(path)))


# ---------------------------------------------------------------------------
# The scenes
# ---------------------------------------------------------------------------

def rigged_arm():
    scene = new_scene("ArmScene", 90)
    rig = make_armature(scene, "ArmRig", [
        ("Shoulder", None, (0.0, 0.0, 1.5), (0.3, 0.0, 1.5), 0, False),
        ("UpperArm", "Shoulder", (0.3, 0.0, 1.5), (1.3, 0.0, 1.5), 0, True),
        ("Forearm", "UpperArm", (1.3, 0.0, 1.5), (2.2, 0.0, 1.45), 0, True),
        ("Hand", "Forearm", (2.2, 0.0, 1.45), (2.6, 0.0, 1.45), 0, True),
    ])
    make_skinned_tubes(scene, "Arm", rig, [((0.1, 0.0, 1.5), (2.6, 0.0, 1.45), 14)], sides=8, radius=0.12,
                       influences=2, falloff=0.25)
    new_action(rig, "ArmAction")
    rest = {'rot': (0, 0, 0)}
    key_pose(rig, 0, {"Shoulder": {'rot': (0, 0, 0), 'loc': (0, 0, 0)}, "UpperArm": rest, "Forearm": rest, "Hand": rest})
    key_pose(rig, 30, {"UpperArm": {'rot': (0, 0, 60)}, "Forearm": {'rot': (0, 0, 20)}})
    key_pose(rig, 37, {"Forearm": {'rot': (0, 0, 50)}, "Hand": {'rot': (20, 0, 0)}})
    key_pose(rig, 45, {"Shoulder": {'loc': (0, 0.05, 0)}, "Forearm": {'rot': (0, 0, -10)}, "Hand": {'rot': (-20, 0, 0)}})
    key_pose(rig, 52, {"Forearm": {'rot': (0, 0, 50)}, "Hand": {'rot': (20, 0, 0)}})
    key_pose(rig, 60, {"UpperArm": {'rot': (0, 0, 60)}, "Forearm": {'rot': (0, 0, 20)}, "Hand": rest})
    key_pose(rig, 90, {"Shoulder": {'rot': (0, 0, 0), 'loc': (0, 0, 0)}, "UpperArm": rest, "Forearm": rest, "Hand": rest})

    defs = [("Raise", 0, 30), ("Wave", 30, 60), ("Lower", 60, 90)]
    path = os.path.join(ROOT, "examples", "rigged_arm.fbx")
    # One take of the scene's timeline, named after the scene.
    export(scene, path, False, [(scene.name, None, 0, 90)],
           {"animation_defs": [{"name": n, "start": s, "end": e} for n, s, e in defs]})
    with open(os.path.join(ROOT, "examples", "rigged_arm_animdefs.xml"), "w") as f:
        f.write("<AnimationDefs>\n")
        for n, s, e in defs:
            f.write('  <AnimationDef name="%s" start="%d" end="%d"/>\n' % (n, s, e))
        f.write("</AnimationDefs>\n")


def branching_rig():
    scene = new_scene("BranchScene", 40)
    bones = [
        ("Hips", None, (0, 0, 1.0), (0, 0, 1.2), 0, False),
        ("Spine", "Hips", (0, 0, 1.2), (0, 0.05, 1.5), 0, True),
        ("Chest", "Spine", (0, 0.05, 1.5), (0, 0, 1.8), 10, True),
        ("Neck", "Chest", (0, 0, 1.8), (0, -0.05, 1.95), 0, True),
        ("Head", "Neck", (0, -0.05, 1.95), (0, -0.05, 2.2), -15, True),
    ]
    for side, sx in (("L", 1.0), ("R", -1.0)):
        roll = 30 if side == "L" else -30
        bones += [
            ("Shoulder." + side, "Chest", (0.05 * sx, 0, 1.75), (0.25 * sx, 0, 1.72), roll, False),
            ("UpperArm." + side, "Shoulder." + side, (0.25 * sx, 0, 1.72), (0.55 * sx, 0.05, 1.45), -roll * 0.7, True),
            ("Thigh." + side, "Hips", (0.12 * sx, 0, 1.0), (0.15 * sx, 0.02, 0.55), 0, False),
            ("Shin." + side, "Thigh." + side, (0.15 * sx, 0.02, 0.55), (0.15 * sx, 0, 0.1), 5 * sx, True),
        ]
    rig = make_armature(scene, "Creature", bones, location=(0.5, -0.25, 0), rotation=(0, 0, 30))
    for name in ("Hips", "Spine", "Chest", "Neck", "Head"):
        rig.pose.bones[name].rotation_mode = 'QUATERNION'
    for name in rig.pose.bones.keys():
        if "." in name:
            rig.pose.bones[name].rotation_mode = 'XYZ'
    segments = [(b.head_local.copy(), b.tail_local.copy(), 3) for b in rig.data.bones]
    make_skinned_tubes(scene, "Body", rig, segments, sides=6, radius=0.05, influences=3, falloff=0.1)

    walk = new_action(rig, "Walk")
    for frame, phase in ((0, 1.0), (10, 0.0), (20, -1.0), (30, 0.0), (40, 1.0)):
        key_pose(rig, frame, {
            "Hips": {'loc': (0, 0.02 * abs(phase), 0), 'rot': (0, 5 * phase, 0)},
            "Spine": {'rot': (0, -8 * phase, 0)},
            "Thigh.L": {'rot': (30 * phase, 0, 0)}, "Thigh.R": {'rot': (-30 * phase, 0, 0)},
            "Shin.L": {'rot': (max(0.0, -40 * phase), 0, 0)}, "Shin.R": {'rot': (max(0.0, 40 * phase), 0, 0)},
            "UpperArm.L": {'rot': (-25 * phase, 0, 10)}, "UpperArm.R": {'rot': (25 * phase, 0, -10)},
        })
    look = new_action(rig, "Look")
    for frame, turn in ((0, 0.0), (15, 1.0), (30, -0.5)):
        key_pose(rig, frame, {
            "Neck": {'rot': (10 * turn, 20 * turn, 0)},
            "Head": {'rot': (0, 35 * turn, -10 * turn)},
            "Chest": {'rot': (5 * turn, 10 * turn, 0)},
        })
    rig.animation_data.action = walk
    path = os.path.join(ROOT, "tests", "data", "blender", "branching_rig.fbx")
    # Every action becomes a take named "<object>|<action>", over the action's own frame range.
    export(scene, path, True, [("Creature|Walk", walk, 0, 40), ("Creature|Look", look, 0, 30)])


def tail_scale():
    scene = new_scene("TailScene", 60)
    bones = [("Tail0", None, (0, 0, 0.5), (0, -0.3, 0.5), 0, False)]
    for i in range(1, 5):
        bones.append(("Tail%d" % i, "Tail%d" % (i - 1), (0, -0.3 * i, 0.5), (0, -0.3 * (i + 1), 0.5 + 0.05 * i), 15 * i, True))
    rig = make_armature(scene, "TailRig", bones, location=(0, 0, 0.2), rotation=(0, 0, -90), scale=(1.5, 1.5, 1.5))
    for pb in rig.pose.bones:
        pb.rotation_mode = 'ZXY'
    segments = [(b.head_local.copy(), b.tail_local.copy(), 3) for b in rig.data.bones]
    make_skinned_tubes(scene, "TailMesh", rig, segments, sides=6, radius=0.06, influences=2, falloff=0.15)

    marker = bpy.data.objects.new("TipMarker", None)
    scene.collection.objects.link(marker)
    marker.parent = rig
    marker.parent_type = 'BONE'
    marker.parent_bone = "Tail3"
    marker.location = (0.0, 0.05, 0.1)   # relative to the bone's tail
    marker.rotation_euler = (0.0, math.radians(45), 0.0)

    new_action(rig, "TailAction")
    for frame in range(0, 61, 10):
        wave = math.sin(frame / 60.0 * 2.0 * math.pi)
        values = {"Tail0": {'loc': (0, -2.0 * frame / 60.0, 0), 'rot': (0, 0, 0)}}
        for i in range(1, 5):
            values["Tail%d" % i] = {'rot': (10 * wave, 0, 25 * wave * (i / 4.0))}
        values["Tail4"]['scale'] = (1.0, 1.0 + 0.5 * abs(wave), 1.0)
        key_pose(rig, frame, values)
    path = os.path.join(ROOT, "tests", "data", "blender", "tail_scale.fbx")
    export(scene, path, False, [(scene.name, None, 0, 60)])


def add_object(scene, name, data, parent=None, location=(0, 0, 0), rotation=(0, 0, 0), scale=(1, 1, 1)):
    obj = bpy.data.objects.new(name, data)
    scene.collection.objects.link(obj)
    if parent is not None:
        obj.parent = parent
        obj.matrix_parent_inverse = Matrix.Identity(4)
    obj.location = location
    obj.rotation_euler = [math.radians(a) for a in rotation]
    obj.scale = scale
    return obj


def props_24fps():
    scene = new_scene("PropsScene", 48)
    scene.render.fps = 24
    base = add_object(scene, "Base", None, location=(1, 2, 0), rotation=(0, 0, 15))

    # A cube with one UV set and per-face corner colors, non-uniformly scaled.
    cube = bpy.data.meshes.new("Crate_mesh")
    v = [(x, y, z) for z in (-0.5, 0.5) for y in (-0.5, 0.5) for x in (-0.5, 0.5)]
    f = [(0, 2, 3, 1), (4, 5, 7, 6), (0, 1, 5, 4), (2, 6, 7, 3), (0, 4, 6, 2), (1, 3, 7, 5)]
    cube.from_pydata(v, [], f)
    uv = cube.uv_layers.new(name="UVMap")
    corner_uvs = [(0, 0), (1, 0), (1, 1), (0, 1)]
    for p in cube.polygons:
        for k, li in enumerate(p.loop_indices):
            u, w = corner_uvs[k]
            uv.data[li].uv = (0.25 * (p.index % 4) + 0.25 * u, 0.5 * (p.index // 4) + 0.5 * w)
    col = cube.color_attributes.new("Col", 'BYTE_COLOR', 'CORNER')
    palette = [(1, 0, 0, 1), (0, 1, 0, 1), (0, 0, 1, 1), (1, 1, 0, 1), (0, 1, 1, 0.5), (1, 0, 1, 1)]
    for p in cube.polygons:
        for li in p.loop_indices:
            col.data[li].color_srgb = palette[p.index]
    cube.update()
    crate = add_object(scene, "Crate", cube, parent=base, location=(0, 0, 0.5), scale=(1, 2, 0.5))

    # Mixed polygon sizes (a hexagon, a quad, two triangles) and two UV sets.
    fan = bpy.data.meshes.new("Fan_mesh")
    ring = [(math.cos(a * math.pi / 3), math.sin(a * math.pi / 3), 0) for a in range(6)]
    fan.from_pydata(ring + [(2.5, 0, 0), (2.5, 1, 0), (0, 2.5, 0)], [],
                    [(0, 1, 2, 3, 4, 5), (0, 6, 7, 1), (1, 7, 2), (2, 8, 3)])
    for name, scale_uv in (("UVMap", 1.0), ("Second", 0.5)):
        layer = fan.uv_layers.new(name=name)
        for li, loop in enumerate(fan.loops):
            x, y, _ = fan.vertices[loop.vertex_index].co
            layer.data[li].uv = (scale_uv * (x + 1) / 3.5, scale_uv * (y + 1) / 3.5)
    fan.update()
    add_object(scene, "Fan", fan, parent=base, location=(0, -3, 0), rotation=(90, 0, 0))

    spinner = add_object(scene, "Spinner", None, parent=base, location=(0, 0, 2))
    spinner.rotation_mode = 'ZXY'

    for frame, t in ((0, 0.0), (24, 0.5), (48, 1.0)):
        base.location = (1 + 2 * t, 2, 0)
        base.keyframe_insert("location", frame=frame)
        crate.rotation_euler = (0, 0, math.radians(90 * t))
        crate.keyframe_insert("rotation_euler", frame=frame)
        spinner.rotation_euler = (math.radians(30 * t), math.radians(-20 * t), math.radians(360 * t))
        spinner.keyframe_insert("rotation_euler", frame=frame)
        spinner.scale = (1 + t, 1, 1 + t)
        spinner.keyframe_insert("scale", frame=frame)
    path = os.path.join(ROOT, "tests", "data", "blender", "props_24fps.fbx")
    export(scene, path, False, [(scene.name, None, 0, 48)])


def main():
    os.makedirs(os.path.join(ROOT, "tests", "data", "blender"), exist_ok=True)
    rigged_arm()
    branching_rig()
    tail_scale()
    props_24fps()


if __name__ == "__main__":
    main()
