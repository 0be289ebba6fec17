#!/usr/bin/env python3
"""Writes the bundled scene: walker.x (text X file) and its BMP textures into one folder.

A skinned character of 17 bones walks a circle over a tiled floor among a few rigid props; a
"CameraDummy" frame sweeps an arc around them. Two animation sets: "Walk" (first, so it plays)
and "Wave". Everything is computed from fixed numbers, so the output is the same on every run.

Usage: make_scene.py OUTPUT_DIR
"""
import math
import os
import struct
import sys

TICKS_PER_SECOND = 4800  # D3DX's default: the file need not say it

# Declared in the file, so that loaders that do not know the skin templates read it too.
SKIN_TEMPLATES = """template XSkinMeshHeader {
 <3cf169ce-ff7c-44ab-93c0-f78f62d172e2>
 WORD nMaxSkinWeightsPerVertex;
 WORD nMaxSkinWeightsPerFace;
 WORD nBones;
}
template SkinWeights {
 <6f0d123b-bad2-4167-a0d0-80224f25fabb>
 STRING transformNodeName;
 DWORD nWeights;
 array DWORD vertexIndices[nWeights];
 array FLOAT weights[nWeights];
 Matrix4x4 matrixOffset;
}"""


# ---------------------------------------------------------------------------------------------
# Matrices: row vectors, as Direct3D (translation in the fourth row).

def identity():
    return [[1.0 if r == c else 0.0 for c in range(4)] for r in range(4)]


def multiply(a, b):
    return [[sum(a[r][k] * b[k][c] for k in range(4)) for c in range(4)] for r in range(4)]


def translation(x, y, z):
    m = identity()
    m[3][0], m[3][1], m[3][2] = x, y, z
    return m


def rotation_x(angle):
    c, s = math.cos(angle), math.sin(angle)
    return [[1, 0, 0, 0], [0, c, s, 0], [0, -s, c, 0], [0, 0, 0, 1]]


def rotation_y(angle):
    c, s = math.cos(angle), math.sin(angle)
    return [[c, 0, -s, 0], [0, 1, 0, 0], [s, 0, c, 0], [0, 0, 0, 1]]


def rotation_z(angle):
    c, s = math.cos(angle), math.sin(angle)
    return [[c, s, 0, 0], [-s, c, 0, 0], [0, 0, 1, 0], [0, 0, 0, 1]]


def num(value):
    text = "%.6f" % value
    return "0.000000" if text == "-0.000000" else text


def matrix_text(m):
    return ",".join(num(m[r][c]) for r in range(4) for c in range(4))


# ---------------------------------------------------------------------------------------------
# Textures: 24-bit BMP, which D3DX loads everywhere.

def write_bmp(path, width, height, pixel):
    row_size = (width * 3 + 3) & ~3
    body = bytearray()
    for y in range(height - 1, -1, -1):  # bottom-up rows
        row = bytearray()
        for x in range(width):
            r, g, b = pixel(x, y)
            row += bytes((b, g, r))
        row += bytes(row_size - len(row))
        body += row
    header = struct.pack("<2sIHHI", b"BM", 54 + len(body), 0, 0, 54)
    info = struct.pack("<IiiHHIIiiII", 40, width, height, 1, 24, 0, len(body), 2835, 2835, 0, 0)
    with open(path, "wb") as f:
        f.write(header + info + body)


def noise(x, y):
    """Deterministic value in 0..1 from a pixel position."""
    n = (x * 374761393 + y * 668265263) & 0xFFFFFFFF
    n = ((n ^ (n >> 13)) * 1274126177) & 0xFFFFFFFF
    return ((n ^ (n >> 16)) & 0xFF) / 255.0


def shade(colour, factor):
    return tuple(max(0, min(255, int(c * factor))) for c in colour)


def floor_pixel(x, y):
    """Stone tiles in two tones with dark grout."""
    if x % 64 < 3 or y % 64 < 3:
        return (52, 48, 44)
    light = ((x // 64) + (y // 64)) % 2 == 0
    base = (196, 180, 150) if light else (128, 140, 150)
    return shade(base, 0.85 + 0.3 * noise(x, y))


def crate_pixel(x, y):
    """Wooden planks inside a darker frame."""
    if x < 6 or y < 6 or x > 57 or y > 57:
        return shade((110, 70, 30), 0.9 + 0.2 * noise(x, y))
    plank = (x // 13) % 2
    base = (176, 122, 62) if plank else (160, 108, 52)
    return shade(base, 0.85 + 0.3 * noise(x // 3, y))


# The character texture is a 4x4 grid of 32-pixel cells; each body part maps onto one cell.
CELL = {"shirt": (0, 0), "skin": (1, 0), "trousers": (2, 0), "shoes": (3, 0), "face": (0, 1)}


def character_pixel(x, y):
    cell = (x // 32, y // 32)
    u, v = x % 32, y % 32
    if cell == CELL["shirt"]:
        return (40, 90, 200) if (v // 4) % 2 == 0 else (230, 200, 40)
    if cell == CELL["trousers"]:
        return (30, 40, 90) if u not in (15, 16) else (200, 200, 210)
    if cell == CELL["shoes"]:
        return (90, 50, 20)
    if cell == CELL["face"]:
        if 6 <= v <= 10 and (7 <= u <= 11 or 20 <= u <= 24):
            return (20, 20, 20)  # eyes
        if 22 <= v <= 24 and 9 <= u <= 22:
            return (160, 40, 40)  # mouth
    return (230, 180, 140)  # skin


# ---------------------------------------------------------------------------------------------
# Geometry: boxes with flat normals, four vertices a side, front faces clockwise.

BOX_SIDES = [  # normal, and the two axes spanning the side (u to the right, v down, seen from outside)
    ((0, 0, -1), (1, 0, 0), (0, -1, 0)),
    ((0, 0, 1), (-1, 0, 0), (0, -1, 0)),
    ((1, 0, 0), (0, 0, 1), (0, -1, 0)),
    ((-1, 0, 0), (0, 0, -1), (0, -1, 0)),
    ((0, 1, 0), (1, 0, 0), (0, 0, -1)),
    ((0, -1, 0), (1, 0, 0), (0, 0, 1)),
]


class MeshBuilder:
    def __init__(self):
        self.positions, self.normals, self.uvs, self.faces, self.face_materials = [], [], [], [], []

    def box(self, lo, hi, material=0, uv_rect=(0.0, 0.0, 1.0, 1.0), uv_for_side=None):
        """Adds an axis-aligned box; returns the indices of its vertices."""
        centre = [(lo[i] + hi[i]) / 2 for i in range(3)]
        half = [(hi[i] - lo[i]) / 2 for i in range(3)]
        for side, (n, u, v) in enumerate(BOX_SIDES):
            rect = uv_for_side(side) if uv_for_side else uv_rect
            base = len(self.positions)
            for su, sv in ((-1, -1), (1, -1), (1, 1), (-1, 1)):
                p = [centre[i] + half[i] * (n[i] + su * u[i] + sv * v[i]) for i in range(3)]
                self.positions.append(p)
                self.normals.append(n)
                self.uvs.append((rect[0] + (rect[2] - rect[0]) * (su + 1) / 2,
                                 rect[1] + (rect[3] - rect[1]) * (sv + 1) / 2))
            self.faces += [(base, base + 1, base + 2), (base, base + 2, base + 3)]
            self.face_materials += [material, material]
        return list(range(len(self.positions) - 24, len(self.positions)))

    def grid(self, size, cells, tiles):
        """A flat square at y = 0, facing up, with texture coordinates repeating `tiles` times."""
        step = size / cells
        for j in range(cells + 1):
            for i in range(cells + 1):
                self.positions.append((-size / 2 + i * step, 0.0, size / 2 - j * step))
                self.normals.append((0, 1, 0))
                self.uvs.append((tiles * i / cells, tiles * j / cells))
        for j in range(cells):
            for i in range(cells):
                a = j * (cells + 1) + i
                self.faces += [(a, a + 1, a + cells + 2), (a, a + cells + 2, a + cells + 1)]
                self.face_materials += [0, 0]

    def text(self, name, materials, extra=""):
        """The Mesh object; materials are Material texts (none: no material list at all)."""
        out = ["Mesh %s {" % name, " %d;" % len(self.positions)]
        out.append(",\n".join(" %s;%s;%s;" % tuple(num(c) for c in p) for p in self.positions) + ";")
        out.append(" %d;" % len(self.faces))
        out.append(",\n".join(" 3;%d,%d,%d;" % f for f in self.faces) + ";")
        out.append(" MeshNormals {\n  %d;" % len(self.normals))
        out.append(",\n".join("  %s;%s;%s;" % tuple(num(c) for c in n) for n in self.normals) + ";")
        out.append("  %d;" % len(self.faces))
        out.append(",\n".join("  3;%d,%d,%d;" % f for f in self.faces) + ";\n }")
        out.append(" MeshTextureCoords {\n  %d;" % len(self.uvs))
        out.append(",\n".join("  %s;%s;" % (num(u), num(v)) for u, v in self.uvs) + ";\n }")
        if materials:
            out.append(" MeshMaterialList {\n  %d;\n  %d;" % (len(materials), len(self.face_materials)))
            out.append(",\n".join("  %d" % m for m in self.face_materials) + ";")
            out.append("\n".join(materials) + "\n }")
        if extra:
            out.append(extra)
        out.append("}")
        return "\n".join(out)


def material(rgb, texture=None):
    lines = ["Material {",
             " %s;%s;%s;1.000000;;" % tuple(num(c) for c in rgb),
             " 8.000000;",
             " 0.000000;0.000000;0.000000;;",
             " 0.000000;0.000000;0.000000;;"]
    if texture:
        lines.append(' TextureFilename { "%s"; }' % texture)
    lines.append("}")
    return "\n".join(lines)


# Written inline into each mesh's material list.
MATERIALS = {
    "FloorStone": material((1, 1, 1), "floor.bmp"),
    "CharacterSkin": material((1, 1, 1), "character.bmp"),
    "CrateWood": material((1, 1, 1), "crate.bmp"),
    "RedPaint": material((0.8, 0.15, 0.1)),
    "Gold": material((0.9, 0.7, 0.2)),
}


def frame(name, matrix, body=""):
    return "Frame %s {\n FrameTransformMatrix { %s;; }\n%s\n}" % (name, matrix_text(matrix), body)


# ---------------------------------------------------------------------------------------------
# The character: bones with their bind offset from the parent joint and the box they carry,
# given in the bone's own space (y up; arms and legs hang down from their joint).

BONES = [  # name, parent, offset, box lo, box hi, texture cell
    ("Hips", None, (0, 4.2, 0), (-0.95, -0.4, -0.5), (0.95, 0.3, 0.5), "trousers"),
    ("Spine", "Hips", (0, 0.3, 0), (-0.9, 0, -0.5), (0.9, 1.4, 0.5), "shirt"),
    ("Chest", "Spine", (0, 1.4, 0), (-1.1, 0, -0.55), (1.1, 1.4, 0.55), "shirt"),
    ("Neck", "Chest", (0, 1.4, 0), (-0.25, 0, -0.25), (0.25, 0.35, 0.25), "skin"),
    ("Head", "Neck", (0, 0.35, 0), (-0.55, 0, -0.55), (0.55, 1.1, 0.55), "skin"),
    ("L_UpperArm", "Chest", (1.35, 1.25, 0), (-0.25, -1.4, -0.25), (0.25, 0, 0.25), "shirt"),
    ("L_LowerArm", "L_UpperArm", (0, -1.4, 0), (-0.22, -1.3, -0.22), (0.22, 0, 0.22), "skin"),
    ("L_Hand", "L_LowerArm", (0, -1.3, 0), (-0.2, -0.5, -0.15), (0.2, 0, 0.15), "skin"),
    ("R_UpperArm", "Chest", (-1.35, 1.25, 0), (-0.25, -1.4, -0.25), (0.25, 0, 0.25), "shirt"),
    ("R_LowerArm", "R_UpperArm", (0, -1.4, 0), (-0.22, -1.3, -0.22), (0.22, 0, 0.22), "skin"),
    ("R_Hand", "R_LowerArm", (0, -1.3, 0), (-0.2, -0.5, -0.15), (0.2, 0, 0.15), "skin"),
    ("L_Thigh", "Hips", (0.5, -0.2, 0), (-0.38, -2.0, -0.38), (0.38, 0, 0.38), "trousers"),
    ("L_Shin", "L_Thigh", (0, -2.0, 0), (-0.32, -1.7, -0.32), (0.32, 0, 0.32), "trousers"),
    ("L_Foot", "L_Shin", (0, -1.7, 0), (-0.35, -0.3, -0.3), (0.35, 0, 0.9), "shoes"),
    ("R_Thigh", "Hips", (-0.5, -0.2, 0), (-0.38, -2.0, -0.38), (0.38, 0, 0.38), "trousers"),
    ("R_Shin", "R_Thigh", (0, -2.0, 0), (-0.32, -1.7, -0.32), (0.32, 0, 0.32), "trousers"),
    ("R_Foot", "R_Shin", (0, -1.7, 0), (-0.35, -0.3, -0.3), (0.35, 0, 0.9), "shoes"),
]
BONE_INDEX = {b[0]: i for i, b in enumerate(BONES)}


def bind_position(name):
    """Where a bone's joint sits in the bind pose (bones carry no rotation there)."""
    _, parent, offset, *_ = BONES[BONE_INDEX[name]]
    base = bind_position(parent) if parent else (0.0, 0.0, 0.0)
    return tuple(base[i] + offset[i] for i in range(3))


def cell_rect(cell):
    cx, cy = CELL[cell]
    inset = 1.0 / 128  # keep bilinear filtering inside the cell
    return (cx / 4 + inset, cy / 4 + inset, (cx + 1) / 4 - inset, (cy + 1) / 4 - inset)


def character_mesh():
    """The body as one mesh; joint-end vertices are shared half and half with the parent bone."""
    mesh = MeshBuilder()
    weights = {b[0]: [] for b in BONES}
    for name, parent, _, lo, hi, cell in BONES:
        joint = bind_position(name)
        lo_w = [lo[i] + joint[i] for i in range(3)]
        hi_w = [hi[i] + joint[i] for i in range(3)]
        face_side = 1 if name == "Head" else -1  # the face looks along +z
        rect_for = (lambda side, c=cell: cell_rect("face") if side == face_side else cell_rect(c))
        for index in mesh.box(lo_w, hi_w, 0, uv_for_side=rect_for):
            at_joint = parent and abs(mesh.positions[index][1] - joint[1]) < 1e-6
            if at_joint:
                weights[name].append((index, 0.5))
                weights[parent].append((index, 0.5))
            else:
                weights[name].append((index, 1.0))
    joints = {name: bind_position(name) for name, *_ in BONES}
    return mesh.text("Body", [MATERIALS["CharacterSkin"]], skin_text(weights, joints))


def skin_text(weights, joints):
    """The skin of a mesh: bone name to its (vertex, weight) entries, and each bone's joint in the
    bind pose (bones carry no rotation there)."""
    blocks = ["XSkinMeshHeader {\n 2;\n 2;\n %d;\n}" % len(weights)]
    for name, entries in weights.items():
        joint = joints[name]
        offset = translation(-joint[0], -joint[1], -joint[2])  # mesh space to bone space
        entries = sorted(entries)
        blocks.append("SkinWeights {\n \"%s\";\n %d;\n %s;\n %s;\n %s;;\n}" % (
            name, len(entries),
            ",\n ".join(str(i) for i, _ in entries),
            ",\n ".join(num(w) for _, w in entries),
            matrix_text(offset)))
    return "\n".join(blocks)


def skeleton_text(name=None):
    """The bone frames nested as the hierarchy, in their bind pose."""
    children = [b for b in BONES if b[1] == name]
    parts = []
    for bone, _, offset, *_ in children:
        parts.append(frame(bone, translation(*offset), skeleton_text(bone)))
    return "\n".join(parts)


# ---------------------------------------------------------------------------------------------
# Animation: matrix keys (type 4) sampled from closed-form poses.

def walk_pose(seconds):
    """Bone name to local matrix at a time of the 4-second walk around a circle of radius 5."""
    period, radius, stride = 4.0, 5.0, 1.0
    angle = 2 * math.pi * seconds / period
    x, z = radius * math.cos(angle), radius * math.sin(angle)
    # The character faces where it goes as time runs forward (vexil-view plays sets forward; the
    # library's own scene controller runs its tracks backwards).
    heading = math.atan2(-math.sin(angle), math.cos(angle))
    swing = math.sin(2 * math.pi * seconds / stride)
    bob = 0.12 * abs(math.cos(2 * math.pi * seconds / stride))
    pose = {
        "Hips": multiply(rotation_y(heading), translation(x, 4.2 + bob, z)),
        "Spine": multiply(rotation_y(0.12 * swing), translation(0, 0.3, 0)),
        "L_Thigh": multiply(rotation_x(0.5 * swing), translation(0.5, -0.2, 0)),
        "R_Thigh": multiply(rotation_x(-0.5 * swing), translation(-0.5, -0.2, 0)),
        "L_Shin": multiply(rotation_x(0.5 * max(0.0, -swing)), translation(0, -2.0, 0)),
        "R_Shin": multiply(rotation_x(0.5 * max(0.0, swing)), translation(0, -2.0, 0)),
        "L_UpperArm": multiply(rotation_x(-0.45 * swing), translation(1.35, 1.25, 0)),
        "R_UpperArm": multiply(rotation_x(0.45 * swing), translation(-1.35, 1.25, 0)),
        "L_LowerArm": multiply(rotation_x(-0.3 - 0.2 * swing), translation(0, -1.4, 0)),
        "R_LowerArm": multiply(rotation_x(-0.3 + 0.2 * swing), translation(0, -1.4, 0)),
    }
    pose["CameraDummy"] = camera_pose(seconds, period)
    return pose


def wave_pose(seconds):
    """The character stands at the centre and waves its right hand (2 seconds)."""
    period = 2.0
    wave = math.sin(2 * math.pi * seconds / (period / 2))
    return {
        "Hips": translation(0, 4.2, 0),
        "R_UpperArm": multiply(rotation_z(-2.4), translation(-1.35, 1.25, 0)),
        "R_LowerArm": multiply(rotation_z(0.5 * wave), translation(0, -1.4, 0)),
        "Head": multiply(rotation_y(0.3 * wave), translation(0, 0.35, 0)),
        "CameraDummy": camera_pose(seconds, period),
    }


def camera_pose(seconds, period):
    """An arc in front of the scene, there and back within the period, so the loop is seamless."""
    sweep = 0.6 * math.sin(2 * math.pi * seconds / period)
    angle = -math.pi / 2 + sweep
    return translation(26 * math.cos(angle), 11 + 2 * math.cos(2 * math.pi * seconds / period), 26 * math.sin(angle))


def animation_set(name, pose, period, samples, ticks=TICKS_PER_SECOND, looped=True):
    """Matrix keys of every frame the pose names; looped sets are closed, the others open (played
    once)."""
    keyed = {}
    for k in range(samples + 1):
        seconds = period * k / samples
        for frame_name, m in pose(seconds).items():
            keyed.setdefault(frame_name, []).append((round(seconds * ticks), m))
    parts = ["AnimationSet %s {" % name]
    for frame_name in sorted(keyed):
        keys = keyed[frame_name]
        body = ",\n".join("  %d;16;%s;;" % (t, matrix_text(m)) for t, m in keys)
        parts.append(" Animation {\n  AnimationKey {\n  4;\n  %d;\n%s;\n  }\n  AnimationOptions { %d; 1; }\n  { %s }\n }"
                     % (len(keys), body, 0 if looped else 1, frame_name))
    parts.append("}")
    return "\n".join(parts)


# ---------------------------------------------------------------------------------------------
# The scene.

PROPS = [  # frame, position, box size, material
    ("CrateA", (9.0, 0.0, 5.0), (3.0, 3.0, 3.0), "CrateWood"),
    ("CrateB", (9.5, 3.0, 5.5), (1.8, 1.8, 1.8), "CrateWood"),
    ("CrateC", (-10.0, 0.0, -6.0), (2.5, 2.5, 2.5), "CrateWood"),
    ("Pillar", (-9.0, 0.0, 8.0), (1.4, 8.0, 1.4), "RedPaint"),
    ("Pedestal", (11.0, 0.0, -8.0), (3.0, 1.2, 3.0), "Gold"),
]


def prop_frame(name, position, size, material_name):
    mesh = MeshBuilder()
    mesh.box((-size[0] / 2, 0.0, -size[2] / 2), (size[0] / 2, size[1], size[2] / 2))
    return frame(name, multiply(rotation_y(0.3 * (len(name) % 3)), translation(*position)),
                 mesh.text(name + "Mesh", [MATERIALS[material_name]]))


def scene_text():
    floor = MeshBuilder()
    floor.grid(48.0, 12, 8)
    world = [frame("Floor", identity(), floor.text("FloorMesh", [MATERIALS["FloorStone"]]))]
    world += [prop_frame(*p) for p in PROPS]
    world.append(frame("Character", identity(), character_mesh() + "\n" + skeleton_text()))
    world.append(frame("CameraDummy", camera_pose(0.0, 4.0)))
    return "\n".join([
        "xof 0303txt 0032",
        "// The bundled VexilDX9 scene, written by tools/scenegen/make_scene.py.",
        SKIN_TEMPLATES,
        frame("Scene", identity(), "\n".join(world)),
        animation_set("Walk", walk_pose, 4.0, 64),
        animation_set("Wave", wave_pose, 2.0, 32),
        "",
    ])


def main():
    if len(sys.argv) != 2:
        sys.stderr.write(__doc__)
        return 2
    out = sys.argv[1]
    os.makedirs(out, exist_ok=True)
    write_bmp(os.path.join(out, "floor.bmp"), 128, 128, floor_pixel)
    write_bmp(os.path.join(out, "crate.bmp"), 64, 64, crate_pixel)
    write_bmp(os.path.join(out, "character.bmp"), 128, 128, character_pixel)
    with open(os.path.join(out, "walker.x"), "w", newline="\n") as f:
        f.write(scene_text())
    return 0


if __name__ == "__main__":
    sys.exit(main())
