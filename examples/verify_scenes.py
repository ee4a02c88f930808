"""Checks the JSON that make_scenes.py wrote from Blender's own data against
what an independent FBX reader (Assimp) finds in the exported files.

Run from the repository root, after building the dumper once:

    g++ -std=c++17 -O1 examples/assimp_dump.cpp -lassimp -o /tmp/assimp_dump
    python3 examples/verify_scenes.py [/tmp/assimp_dump]

Checked for every file:
  * the node tree: every node of the JSON exists with the same parent;
  * the static transform of every node against the JSON's values of the
    first frame of the first take (which Blender writes as the static values);
  * every mesh's polygon count and the first corners of every UV and color set;
  * every bone's offset matrix (mesh to bone space at bind time), i.e.
    inverse(bind_world(bone)) @ world(mesh), against the JSON's bind matrices;
  * every sampled frame of every take: the node's local translation,
    rotation (as a quaternion, either sign) and scale against Assimp's keys at
    that frame.
Prints one line per file and exits non-zero on any mismatch.
"""

import json
import math
import os
import subprocess
import sys

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
# (file, reference JSON); the ASCII twin of the arm shares the arm's JSON.
FILES = [("examples/rigged_arm.fbx", "examples/rigged_arm.json"),
         ("tests/data/blender/rigged_arm_ascii.fbx", "examples/rigged_arm.json"),
         ("tests/data/blender/branching_rig.fbx", "tests/data/blender/branching_rig.json"),
         ("tests/data/blender/tail_scale.fbx", "tests/data/blender/tail_scale.json"),
         ("tests/data/blender/props_24fps.fbx", "tests/data/blender/props_24fps.json")]


def mat_from_file_form(rows):
    """JSON rows (axis images, row 3 translation) -> column-vector matrix as rows."""
    return [[rows[c][r] for c in range(4)] for r in range(4)]


def mat_from_assimp(values):
    return [values[r * 4:r * 4 + 4] for r in range(4)]


def mul(a, b):
    return [[sum(a[i][k] * b[k][j] for k in range(4)) for j in range(4)] for i in range(4)]


def inverse(m):
    n = 4
    a = [row[:] + [1.0 if i == j else 0.0 for j in range(n)] for i, row in enumerate(m)]
    for col in range(n):
        pivot = max(range(col, n), key=lambda r: abs(a[r][col]))
        a[col], a[pivot] = a[pivot], a[col]
        d = a[col][col]
        a[col] = [v / d for v in a[col]]
        for r in range(n):
            if r != col:
                f = a[r][col]
                a[r] = [x - f * y for x, y in zip(a[r], a[col])]
    return [row[n:] for row in a]


def close(a, b, tol):
    return all(abs(x - y) <= tol for x, y in zip(a, b))


def mat_close(a, b, tol):
    return all(close(ra, rb, tol) for ra, rb in zip(a, b))


def trs_matrix(t, q, s):
    x, y, z, w = q
    r = [[1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)],
         [2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)],
         [2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)]]
    return [[r[i][0] * s[0], r[i][1] * s[1], r[i][2] * s[2], t[i]] for i in range(3)] + [[0, 0, 0, 1]]


def key_at(keys, frame):
    for key in keys:
        if abs(key[0] - frame) < 1e-3:
            return key[1:]
    return None


def verify(path, reference, dumper):
    expected = json.load(open(reference))
    found = json.loads(subprocess.run([dumper, path], check=True, capture_output=True, text=True).stdout)
    errors = []
    ai_nodes = {n["name"]: n for n in found["nodes"]}

    # Node tree and static values.
    first = expected["takes"][0]["samples"][0]["nodes"]
    for node in expected["nodes"]:
        ai = ai_nodes.get(node["name"])
        if ai is None:
            errors.append("node %s missing" % node["name"])
            continue
        parent = ai["parent"] if ai["parent"] != "RootNode" else None
        if parent != node["parent"]:
            errors.append("node %s: parent %s, expected %s" % (node["name"], parent, node["parent"]))
        v = first[node["name"]]
        want = trs_matrix(v["translation"], v["rotation_quaternion_xyzw"], v["scale"])
        if not mat_close(mat_from_assimp(ai["local"]), want, 1e-3 * max(1.0, max(abs(x) for x in v["scale"]))):
            errors.append("node %s: static transform differs" % node["name"])

    # Bone offsets.
    bind = {n["name"]: mat_from_file_form(n["bind_world"]) for n in expected["nodes"]}
    for mesh in expected["meshes"]:
        if not mesh["clusters"]:
            continue
        ai_mesh = [m for m in found["meshes"] if m["bones"] and {b["name"] for b in m["bones"]} <= set(bind)]
        if not ai_mesh:
            errors.append("mesh %s: no skinned mesh found" % mesh["name"])
            continue
        ai_bones = {b["name"]: b for m in ai_mesh for b in m["bones"]}
        for cluster in mesh["clusters"]:
            bone = ai_bones.get(cluster["bone"])
            if bone is None:
                errors.append("mesh %s: bone %s missing" % (mesh["name"], cluster["bone"]))
                continue
            want = mul(inverse(bind[cluster["bone"]]), bind[mesh["name"]])
            if not mat_close(mat_from_assimp(bone["offset"]), want, 1e-3):
                errors.append("bone %s: offset differs" % cluster["bone"])
            if not mat_close(mat_from_file_form(cluster["transform"]), want, 1e-4):
                errors.append("bone %s: cluster transform inconsistent" % cluster["bone"])

    # Polygons, UV sets and color sets of every mesh node.
    for mesh in expected["meshes"]:
        indices = ai_nodes.get(mesh["name"], {}).get("meshes", [])
        ai_meshes = [found["meshes"][i] for i in indices]
        if len(ai_meshes) != 1:
            errors.append("mesh %s: %d meshes on its node" % (mesh["name"], len(ai_meshes)))
            continue
        ai = ai_meshes[0]
        if ai["faces"] != mesh["polygons"]:
            errors.append("mesh %s: %d faces, expected %d" % (mesh["name"], ai["faces"], mesh["polygons"]))
        if len(ai["uvs"]) != len(mesh["uv_sets"]) or len(ai["colors"]) != len(mesh["color_sets"]):
            errors.append("mesh %s: UV or color set count differs" % mesh["name"])
            continue
        for k, name in enumerate(mesh["uv_sets"]):
            if not all(close(a, b, 1e-5) for a, b in zip(ai["uvs"][k], mesh["first_uvs"][name])):
                errors.append("mesh %s: UV set %s differs" % (mesh["name"], name))
        for k, name in enumerate(mesh["color_sets"]):
            if not all(close(a, b, 1e-5) for a, b in zip(ai["colors"][k], mesh["first_colors"][name])):
                errors.append("mesh %s: color set %s differs" % (mesh["name"], name))

    # Animation samples.
    samples_checked = 0
    for take in expected["takes"]:
        anims = [a for a in found["animations"] if a["name"] == take["name"]]
        if not anims:
            errors.append("take %s missing (found %s)" % (take["name"], [a["name"] for a in found["animations"]]))
            continue
        channels = {c["node"]: c for c in anims[0]["channels"]}
        animated = {name for name in take["samples"][0]["nodes"]
                    if any(sample["nodes"][name] != take["samples"][0]["nodes"][name] for sample in take["samples"])}
        for sample in take["samples"]:
            for name, v in sample["nodes"].items():
                channel = channels.get(name)
                if channel is None:
                    if name in animated:
                        errors.append("take %s: node %s moves but has no channel" % (take["name"], name))
                        animated.discard(name)
                    continue
                t = key_at(channel["position"], sample["frame"])
                q = key_at(channel["rotation"], sample["frame"])
                s = key_at(channel["scaling"], sample["frame"])
                if t is None or q is None or s is None:
                    errors.append("take %s frame %d node %s: no key" % (take["name"], sample["frame"], name))
                    continue
                tol = 1e-3 * max(1.0, max(abs(x) for x in v["translation"]))
                want_q = v["rotation_quaternion_xyzw"]
                same_rotation = close(q, want_q, 2e-4) or close(q, [-x for x in want_q], 2e-4)
                if not close(t, v["translation"], tol) or not close(s, v["scale"], 1e-3) or not same_rotation:
                    errors.append("take %s frame %d node %s: %s %s %s vs %s" % (
                        take["name"], sample["frame"], name, t, q, s, v))
                samples_checked += 1
    return errors, samples_checked


def main():
    dumper = sys.argv[1] if len(sys.argv) > 1 else "/tmp/assimp_dump"
    failed = False
    for rel, reference in FILES:
        errors, samples = verify(os.path.join(ROOT, rel), os.path.join(ROOT, reference), dumper)
        print("%s: %s (%d node samples compared)" % (rel, "ok" if not errors else "%d mismatches" % len(errors), samples))
        for e in errors[:20]:
            print("   ", e)
        failed = failed or bool(errors)
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
