#!/usr/bin/env python3
"""Writes the viewer's small X files, each made to show one thing a real file can do:

  props.x  rigid boxes, one textured (crate.bmp), one painted; no animation
  arm.x    a skinned two-bone arm, painted, with no texture anywhere in the file; 30 ticks a
           second; "Raise" (first, played once) lifts it, "Wag" (looped) swings it. Both hold the
           arm high above where the bind pose puts it.
  bare.x   one box whose mesh has no material list at all

Usage: make_fixtures.py OUTPUT_DIR
"""
import math
import os
import sys

from make_scene import (SKIN_TEMPLATES, MeshBuilder, animation_set, crate_pixel, frame, identity, material,
                        multiply, rotation_y, rotation_z, skin_text, translation, write_bmp)

ARM_TICKS = 30
SHOULDER = (0.0, 10.0, 0.0)  # where both sets hold the shoulder; the bind pose has it at the origin


def props_text():
    crate, pillar = MeshBuilder(), MeshBuilder()
    crate.box((-1.5, 0.0, -1.5), (1.5, 3.0, 1.5))
    pillar.box((-0.6, 0.0, -0.6), (0.6, 5.0, 0.6))
    return "\n".join([
        "xof 0303txt 0032",
        frame("Props", identity(), "\n".join([
            frame("Crate", translation(-2.0, 0.0, 0.0), crate.text("CrateMesh", [material((1, 1, 1), "crate.bmp")])),
            frame("Pillar", translation(2.5, 0.0, 0.0), pillar.text("PillarMesh", [material((0.8, 0.15, 0.1))])),
        ])),
        "",
    ])


def arm_mesh():
    """Upper arm from the shoulder to x = 3, forearm from there to x = 6; the elbow's vertices
    follow both bones."""
    mesh = MeshBuilder()
    weights = {"Shoulder": [], "Elbow": []}
    for bone, lo, hi in (("Shoulder", (0.0, -0.5, -0.5), (3.0, 0.5, 0.5)), ("Elbow", (3.0, -0.4, -0.4), (6.0, 0.4, 0.4))):
        for index in mesh.box(lo, hi):
            at_elbow = abs(mesh.positions[index][0] - 3.0) < 1e-6
            if at_elbow:
                weights["Shoulder"].append((index, 0.5))
                weights["Elbow"].append((index, 0.5))
            else:
                weights[bone].append((index, 1.0))
    joints = {"Shoulder": (0.0, 0.0, 0.0), "Elbow": (3.0, 0.0, 0.0)}
    return mesh.text("ArmMesh", [material((0.95, 0.55, 0.1))], skin_text(weights, joints))


def raise_pose(seconds):
    """Two seconds: from hanging down to pointing up, the elbow bending on the way."""
    share = seconds / 2.0
    return {"Shoulder": multiply(rotation_z(math.radians(-80 + 160 * share)), translation(*SHOULDER)),
            "Elbow": multiply(rotation_z(math.radians(70 * share)), translation(3.0, 0.0, 0.0))}


def wag_pose(seconds):
    """One second, looped: level, swinging side to side about the vertical."""
    swing = math.sin(2 * math.pi * seconds)
    return {"Shoulder": multiply(rotation_y(0.7 * swing), translation(*SHOULDER)),
            "Elbow": multiply(rotation_z(0.4 + 0.3 * swing), translation(3.0, 0.0, 0.0))}


def arm_text():
    skeleton = frame("Shoulder", identity(), frame("Elbow", translation(3.0, 0.0, 0.0)))
    return "\n".join([
        "xof 0303txt 0032",
        SKIN_TEMPLATES,
        "AnimTicksPerSecond { %d; }" % ARM_TICKS,
        frame("Stand", identity(), arm_mesh() + "\n" + skeleton),
        animation_set("Raise", raise_pose, 2.0, 8, ARM_TICKS, looped=False),
        animation_set("Wag", wag_pose, 1.0, 8, ARM_TICKS),
        "",
    ])


def bare_text():
    box = MeshBuilder()
    box.box((-2.0, 0.0, -1.0), (2.0, 1.5, 1.0))
    return "\n".join(["xof 0303txt 0032", frame("Plinth", identity(), box.text("PlinthMesh", [])), ""])


def main():
    if len(sys.argv) != 2:
        sys.stderr.write(__doc__)
        return 2
    out = sys.argv[1]
    os.makedirs(out, exist_ok=True)
    write_bmp(os.path.join(out, "crate.bmp"), 64, 64, crate_pixel)
    for name, text in (("props.x", props_text()), ("arm.x", arm_text()), ("bare.x", bare_text())):
        with open(os.path.join(out, name), "w", newline="\n") as f:
            f.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
