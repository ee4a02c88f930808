"""Rewrites a binary FBX 7 file as an ASCII FBX file with the same field tree.

Blender writes binary FBX only; this gives the tests an ASCII file with the
contents of a real exported scene. Usage, from the repository root:

    python3 examples/fbx_binary_to_ascii.py examples/rigged_arm.fbx \
        tests/data/blender/rigged_arm_ascii.fbx

The ASCII form follows the files that FBX 7 tools write: a "; FBX 7.x.0
project file" comment, `Name: value, value {` blocks, quoted strings with
object names as "Class::Name", counted arrays `*n { a: ... }` broken into lines
of 16 values after a comma, and the weight word of KeyAttrDataFloat written as
the integer of its bits. Booleans and characters (type C) are written as
their integer value unless they are a printable letter; raw bytes (type R) as
a quoted base64 text.
"""

import base64
import struct
import sys
import zlib

SCALARS = {"Y": ("h", 2), "C": ("B", 1), "I": ("i", 4), "F": ("f", 4), "D": ("d", 8), "L": ("q", 8)}
ARRAYS = {"i": ("i", 4), "f": ("f", 4), "d": ("d", 8), "l": ("q", 8), "b": ("B", 1)}
PER_LINE = 16


def parse(data):
    if data[:20] != b"Kaydara FBX Binary  ":
        raise SystemExit("not a binary FBX file")
    order = ">" if data[22] else "<"
    version = struct.unpack(order + "I", data[23:27])[0]
    wide = version >= 7500
    word, wfmt = (8, "Q") if wide else (4, "I")

    def values(pos, count):
        out = []
        for _ in range(count):
            t = chr(data[pos])
            pos += 1
            if t in SCALARS:
                fmt, size = SCALARS[t]
                out.append((t, struct.unpack(order + fmt, data[pos:pos + size])[0]))
                pos += size
            elif t in "SR":
                (length,) = struct.unpack(order + "I", data[pos:pos + 4])
                raw = data[pos + 4:pos + 4 + length]
                pos += 4 + length
                out.append((t, raw))
            elif t in ARRAYS:
                count_, encoding, size = struct.unpack(order + "III", data[pos:pos + 12])
                raw = data[pos + 12:pos + 12 + size]
                pos += 12 + size
                if encoding == 1:
                    raw = zlib.decompress(raw)
                fmt, esize = ARRAYS[t]
                out.append((t, list(struct.unpack(order + fmt * count_, raw[:count_ * esize]))))
            else:
                raise SystemExit("unknown value type %r" % t)
        return out, pos

    def level(pos, end):
        fields = []
        while pos < end:
            end_offset, count, list_size = struct.unpack(order + wfmt * 3, data[pos:pos + 3 * word])
            name_length = data[pos + 3 * word]
            if end_offset == 0:
                return fields, pos + 3 * word + 1
            name = data[pos + 3 * word + 1:pos + 3 * word + 1 + name_length].decode()
            vals, vpos = values(pos + 3 * word + 1 + name_length, count)
            children, block = [], vpos < end_offset
            if block:
                children, _ = level(vpos, end_offset)
            fields.append((name, vals, children, block))
            pos = end_offset
        return fields, pos

    fields, _ = level(27, len(data))
    return version, fields


def shortest_float(value):
    for precision in range(1, 10):
        text = "%.*g" % (precision, value)
        if struct.unpack("f", struct.pack("f", float(text)))[0] == value:
            return text
    return repr(value)


def scalar_text(t, v):
    if t == "S":
        if b"\x00\x01" in v:
            name, cls = v.split(b"\x00\x01", 1)
            v = cls + b"::" + name
        return '"' + v.decode("utf-8", "replace").replace('"', "&quot;") + '"'
    if t == "R":
        return '"' + base64.b64encode(v).decode() + '"'
    if t == "C":
        return chr(v) if chr(v).isalpha() else str(v)
    if t == "F":
        return shortest_float(v)
    if t == "D":
        return repr(v)
    return str(v)


def array_items(name, t, items):
    if t == "f":
        out = []
        for i, v in enumerate(items):
            if name == "KeyAttrDataFloat" and i % 4 == 2:
                out.append(str(struct.unpack("<I", struct.pack("<f", v))[0]))
            else:
                out.append(shortest_float(v))
        return out
    if t == "d":
        return [repr(v) for v in items]
    return [str(int(v)) for v in items]


def write(fields, depth, out):
    indent = "\t" * depth
    for name, vals, children, block in fields:
        parts = []
        counted = False
        for t, v in vals:
            if t in ARRAYS:
                items = array_items(name, t, v)
                lines = [",".join(items[i:i + PER_LINE]) for i in range(0, len(items), PER_LINE)]
                parts.append("*%d {\n%s\ta: %s\n%s} " % (len(items), indent, ",\n".join(lines), indent))
                counted = True
            else:
                parts.append(scalar_text(t, v))
        line = indent + name + ": " + ", ".join(parts)
        if block or not vals:
            out.append(line + " {")
            write(children, depth + 1, out)
            out.append(indent + "}")
        else:
            out.append(line.rstrip() if counted else line)


def main():
    if len(sys.argv) != 3:
        raise SystemExit("usage: fbx_binary_to_ascii.py input.fbx output.fbx")
    with open(sys.argv[1], "rb") as f:
        version, fields = parse(f.read())
    out = ["; FBX %d.%d.0 project file" % (version // 1000, version // 100 % 10),
           "; Rewritten from the binary file %s" % sys.argv[1].split("/")[-1],
           "; ----------------------------------------------------", ""]
    for field in fields:
        write([field], 0, out)
        out.append("")
    with open(sys.argv[2], "w") as f:
        f.write("\n".join(out) + "\n")


if __name__ == "__main__":
    main()
