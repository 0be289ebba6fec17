#!/usr/bin/env python3
"""Runs vexil-view headless under Wine and checks the pictures it writes.

Usage: viewer_test.py BUILD_DIR CHECK   (CHECK: bundled, errors, fixtures, gallery, samples)
Exit 0 passed, 1 failed, 77 skipped.
"""
import fcntl
import json
import os
import re
import select
import shutil
import struct
import subprocess
import sys
import time
import zlib

BACKGROUND = (46, 52, 64)  # the viewer's clear colour
SKIP = 77


def wine_path(path):
    return "Z:" + os.path.abspath(path).replace("/", "\\")


class Viewer:
    def __init__(self, build):
        self.build = build
        self.work = os.path.join(build, "bin", "test-output", "viewer")
        os.makedirs(self.work, exist_ok=True)

    def run(self, scene, *options, out=None):
        """Runs the viewer; returns (exit code, stdout, stderr)."""
        command = [os.path.join(self.build, "wine-run"), os.path.join(self.build, "bin", "vexil-view.exe"), scene]
        command += list(options)
        if out is not None:
            shutil.rmtree(out, ignore_errors=True)
            command += ["--out", wine_path(out)]
        done = subprocess.run(command, capture_output=True, text=True, timeout=600)
        return done.returncode, done.stdout.replace("\r", "\n"), done.stderr

    def bundled_scene(self):
        return wine_path(os.path.join(self.build, "bin", "scene", "walker.x"))


# ---------------------------------------------------------------------------------------------
# PNG reading (8-bit RGB, any row filter), animated ones included.

def chunks(path):
    with open(path, "rb") as f:
        data = f.read()
    assert data[:8] == b"\x89PNG\r\n\x1a\n", path + " is not a PNG"
    at = 8
    while at < len(data):
        size, kind = struct.unpack(">I4s", data[at:at + 8])
        yield kind, data[at + 8:at + 8 + size]
        at += 12 + size


def unfilter(packed, width, height):
    raw, stride = zlib.decompress(packed), width * 3
    rows, previous = [], bytearray(stride)
    for y in range(height):
        kind, line = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            left = line[i - 3] if i >= 3 else 0
            up, corner = previous[i], previous[i - 3] if i >= 3 else 0
            if kind == 1: line[i] = (line[i] + left) & 255
            elif kind == 2: line[i] = (line[i] + up) & 255
            elif kind == 3: line[i] = (line[i] + (left + up) // 2) & 255
            elif kind == 4:
                p = left + up - corner
                pa, pb, pc = abs(p - left), abs(p - up), abs(p - corner)
                line[i] = (line[i] + (left if pa <= pb and pa <= pc else up if pb <= pc else corner)) & 255
        rows.append([tuple(line[x * 3:x * 3 + 3]) for x in range(width)])
        previous = line
    return rows


def read_png(path):
    """Rows of (r, g, b): the picture, or the first frame of an animated one."""
    idat, width, height = b"", 0, 0
    for kind, body in chunks(path):
        if kind == b"IHDR":
            width, height, depth, colour = struct.unpack(">IIBB", body[:10])
            assert (depth, colour) == (8, 2), "expected 8-bit RGB"
        elif kind == b"IDAT":
            idat += body
    return unfilter(idat, width, height)


def read_animation(path):
    """The frames of an animated PNG as a browser shows them, and the delay of each (seconds).
    Each frame replaces its rectangle of the canvas, which keeps what it shows elsewhere."""
    frames, delays, canvas, control, declared = [], [], None, None, None
    for kind, body in chunks(path):
        if kind == b"IHDR":
            width, height = struct.unpack(">II", body[:8])
            canvas = [[(0, 0, 0)] * width for _ in range(height)]
        elif kind == b"acTL":
            declared = struct.unpack(">I", body[:4])[0]
        elif kind == b"fcTL":
            control = struct.unpack(">IIIIIHHBB", body)
        elif kind in (b"IDAT", b"fdAT"):
            _, w, h, x, y, num, den, dispose, blend = control
            assert (dispose, blend) == (0, 0), "frames replace their rectangle and stay"
            part = unfilter(body if kind == b"IDAT" else body[4:], w, h)
            for row in range(h):
                canvas[y + row][x:x + w] = part[row]
            frames.append([list(r) for r in canvas])
            delays.append(num / (den or 100))
    assert declared == len(frames), "acTL declares %s frames, the file holds %d" % (declared, len(frames))
    return frames, delays


def shirt_centroid(rows):
    """Centre of the character's blue shirt stripes, and how many pixels show them."""
    xs, ys = [], []
    for y, row in enumerate(rows):
        for x, (r, g, b) in enumerate(row):
            if b > 100 and b > r + 50 and b > g + 40:
                xs.append(x)
                ys.append(y)
    return (sum(xs) / len(xs), sum(ys) / len(ys), len(xs)) if xs else (0, 0, 0)


def red_pixels(rows):
    """Pixels of the red pillar, a rigid prop with a material and no texture."""
    return sum(1 for row in rows for r, g, b in row if r > 120 and g < r // 3 and b < r // 3)


def roughness(rows):
    """Mean brightness step between neighbouring pixels of the lower quarter (the floor)."""
    steps, count = 0, 0
    for row in rows[len(rows) * 3 // 4:]:
        for a, b in zip(row, row[1:]):
            steps += abs(sum(a) - sum(b))
            count += 1
    return steps / count / 3


# ---------------------------------------------------------------------------------------------
# Checks. Each returns a list of failures.

FRAMES = 6


def check_bundled(viewer):
    failures = []
    runs = [os.path.join(viewer.work, name) for name in ("run1", "run2", "plain", "effect", "lit", "shadows")]
    options = ["--frames", str(FRAMES), "--fps", "6", "--size", "320x240"]
    extras = ([], [], ["--no-textures"], ["--skin", "effect"], ["--lighting", "blinn-phong"], ["--shadows"])
    for out, extra in zip(runs, extras):
        code, stdout, stderr = viewer.run(viewer.bundled_scene(), *options, *extra, out=out)
        if code != 0:
            return ["bundled scene run %s exited %d: %s" % (extra, code, stderr)]
    if "frame %d/%d" % (FRAMES, FRAMES) not in stdout or "average" not in stdout or "triangles" not in stdout:
        failures.append("no progress line or summary in: " + stdout)
    names = ["frame_%04d.png" % i for i in range(1, FRAMES + 1)] + ["contact.png"]
    for name in names:
        with open(os.path.join(runs[0], name), "rb") as a, open(os.path.join(runs[1], name), "rb") as b:
            if a.read() != b.read():
                failures.append(name + " differs from run to run")
    first = read_png(os.path.join(runs[0], names[0]))
    last = read_png(os.path.join(runs[0], names[FRAMES - 1]))
    (x0, y0, n0), (x1, y1, n1) = shirt_centroid(first), shirt_centroid(last)
    if min(n0, n1) < 30:
        failures.append("the character is not in the pictures (%d and %d shirt pixels)" % (n0, n1))
    elif abs(x1 - x0) + abs(y1 - y0) < 5:
        failures.append("the character did not move: (%.1f, %.1f) then (%.1f, %.1f)" % (x0, y0, x1, y1))
    (xe, ye, ne) = shirt_centroid(read_png(os.path.join(runs[3], names[FRAMES - 1])))
    if ne < 30 or abs(xe - x1) + abs(ye - y1) > 20:
        failures.append("the effect path puts the character elsewhere: (%.1f, %.1f) against (%.1f, %.1f), %d pixels"
                        % (xe, ye, x1, y1, ne))
    if red_pixels(first) < 30:
        failures.append("the rigid props are not drawn (no red pillar)")
    textured, plain = roughness(first), roughness(read_png(os.path.join(runs[2], names[0])))
    if textured < 2 * plain + 1:
        failures.append("the floor does not look textured: roughness %.2f against %.2f untextured" % (textured, plain))
    for run in runs[4:]:
        shaded = read_png(os.path.join(run, names[0]))
        drawn = sum(1 for row in shaded for p in row if p != BACKGROUND)
        if drawn < 320 * 240 // 2 or red_pixels(shaded) < 30 or shaded == first:
            failures.append("%s: %d pixels drawn, %d red, same as fixed lighting: %s"
                            % (os.path.basename(run), drawn, red_pixels(shaded), shaded == first))
    # Shadows darken what the lit picture shows lit, and brighten nothing much.
    lit, shadowed = (read_png(os.path.join(run, names[0])) for run in runs[4:])
    steps = [sum(a) - sum(b) for ra, rb in zip(lit, shadowed) for a, b in zip(ra, rb)]
    darker, brighter = sum(1 for d in steps if d > 60), sum(1 for d in steps if d < -60)
    if darker < 100 or brighter > 20:
        failures.append("no shadows: %d pixels darker than lit, %d brighter" % (darker, brighter))
    sheet = read_png(os.path.join(runs[0], "contact.png"))
    if (len(sheet[0]), len(sheet)) != (4 + 4 * 84, 4 + 2 * 64):
        failures.append("contact sheet is %dx%d" % (len(sheet[0]), len(sheet)))
    if os.path.getsize(os.path.join(runs[2], names[0])) > 320 * 240:
        failures.append("pictures are not compressed")
    return failures


def check_errors(viewer):
    failures = []
    scene = viewer.bundled_scene()
    with open(os.path.join(viewer.build, "bin", "scene", "walker.x")) as f:
        text = f.read()
    files = {"cut.x": text[:len(text) // 3], "garbage.x": "not an X file at all\n",
             "bad.k2m": "0:Hips\nHead\n", "good.k2m": "0:Hips\n"}
    for name, content in files.items():
        with open(os.path.join(viewer.work, name), "w") as f:
            f.write(content)
    at = lambda name: wine_path(os.path.join(viewer.work, name))
    cases = [  # what, scene, options, exit code, text expected on standard error
        ("missing scene", at("none.x"), [], 2, "no such file"),
        ("damaged scene", at("cut.x"), [], 2, "not a loadable X file"),
        ("not an X file", at("garbage.x"), [], 2, "not a loadable X file"),
        ("bad k2m entry", scene, ["--k2m", at("bad.k2m")], 2, "not a 'k:frameName' entry"),
        ("missing k2m", scene, ["--k2m", at("none.k2m")], 2, "cannot read"),
        ("refused size", scene, ["--size", "100000x100000"], 2, "refuses"),
        ("empty size", scene, ["--size", "0x0"], 2, "--size"),
        ("unknown option", scene, ["--fast"], 2, "unknown option"),
        ("unknown animation set", scene, ["--animation", "Run"], 2, "no animation set 'Run' in"),
        ("missing textures", scene, ["--textures", at("no-such-dir")], 0, "does not exist"),
        ("good k2m", scene, ["--k2m", at("good.k2m")], 0, ""),
    ]
    for what, file, options, expected, message in cases:
        out = os.path.join(viewer.work, "errors")
        code, _, stderr = viewer.run(file, "--frames", "1", "--size", "64x48", *options, out=out)
        pictures = os.path.isdir(out) and any(n.endswith(".png") for n in os.listdir(out))
        if code != expected or message not in stderr or pictures != (expected == 0):
            failures.append("%s: exit %d (wanted %d), pictures %s, stderr: %s" % (what, code, expected, pictures, stderr.strip()))
    return failures


def covered(rows):
    """The pixels that are not the background."""
    return [(x, y, p) for y, row in enumerate(rows) for x, p in enumerate(row) if p != BACKGROUND]


def shown(rows, least=0.01):
    """What is wrong with a picture of a model: too little of it, black, or cut by the edge."""
    height, width = len(rows), len(rows[0])
    model = covered(rows)
    if len(model) < width * height * least:
        return "only %d pixels show the model" % len(model)
    brightness = sum(sum(p) for _, _, p in model) / len(model) / 3
    if brightness < 50:
        return "the model is black (mean brightness %.0f)" % brightness
    xs, ys = [x for x, _, _ in model], [y for _, y, _ in model]
    if min(xs) == 0 or min(ys) == 0 or max(xs) == width - 1 or max(ys) == height - 1:
        return "the model reaches the edge: x %d..%d, y %d..%d" % (min(xs), max(xs), min(ys), max(ys))
    return ""


def frames_of(out, count):
    return [read_png(os.path.join(out, "frame_%04d.png" % i)) for i in range(1, count + 1)]


def check_run(viewer, scene, frames, fps, *options, size="160x120", least=0.01):
    """Runs the viewer headless; returns its frames (or None) and what is wrong with them."""
    out = os.path.join(viewer.work, "run")
    code, stdout, stderr = viewer.run(scene, "--frames", str(frames), "--fps", str(fps), "--size", size, *options, out=out)
    if code:
        return None, stdout, ["%s %s: exit %d: %s" % (scene, options, code, stderr.strip())]
    pictures = frames_of(out, frames)
    bad = [(i + 1, shown(p, least)) for i, p in enumerate(pictures) if shown(p, least)]
    return pictures, stdout, ["%s %s: %d of %d frames bad, frame %d: %s" % ((scene, options, len(bad), frames) + bad[0])] if bad else []


def check_fixtures(viewer):
    """The project's small X files: each thing real files do is drawn as its author means."""
    fixture = lambda name: wine_path(os.path.join(viewer.build, "bin", "fixtures", name))
    failures = []
    # arm.x: a skin in a file without textures, 30 ticks a second, "Raise" (2 s, played once by
    # the file) first, "Wag" second; both far from the bind pose, which framing must not follow.
    looped, stdout, problems = check_run(viewer, fixture("arm.x"), 12, 4)
    failures += problems
    if looped:
        still = [i + 1 for i in range(7) if looped[i] == looped[i + 1]]
        if still or looped[8] != looped[0]:
            failures.append("Raise does not play forward over its 2 s and loop: frames alike %s, 9th is 1st: %s"
                            % (still, looped[8] == looped[0]))
        frames, delays = read_animation(os.path.join(viewer.work, "run", "animation.png"))
        posterized = [[tuple(c & 0xFC for c in p) for p in row] for row in looped[-1]]
        if len(frames) != 12 or abs(delays[0] - 0.25) > 1e-3 or frames[-1] != posterized:
            failures.append("animation.png: %d frames of %.3f s, last frame as drawn: %s"
                            % (len(frames), delays[0], frames[-1] == posterized))
    once, _, problems = check_run(viewer, fixture("arm.x"), 12, 4, "--once")
    failures += problems
    if once and (once[7] == once[8] or any(p != once[8] for p in once[9:])):
        failures.append("--once does not play Raise to its end at 2 s and hold it there")
    fast, _, problems = check_run(viewer, fixture("arm.x"), 4, 4, "--speed", "2", "--animation", "0")
    failures += problems
    if looped and fast and fast != looped[0:8:2]:
        failures.append("--speed 2 on the first set does not show at each frame what speed 1 shows at every other")
    for chosen in (["--animation", "Wag"], ["--animation", "1"]):
        wag, _, problems = check_run(viewer, fixture("arm.x"), 2, 4, *chosen)
        failures += problems
        if looped and wag and (wag[0] == looped[0] or wag[0] == wag[1]):
            failures.append("%s does not play the second set" % chosen)
    _, stdout, problems = check_run(viewer, fixture("bare.x"), 1, 4, least=0.05)
    failures += problems
    if "12 triangles a frame" not in stdout or "has no material: drawn in neutral grey" not in stdout:
        failures.append("bare.x: the summary does not count the bare mesh or warn about it: " + stdout)
    failures += check_info(viewer, fixture("arm.x"), ["skinned, 48 vertices, 24 triangles", "bones       2",
                                                       "0 'Raise' 2.00 s, 30 ticks a second, once (plays)",
                                                       "1 'Wag' 1.00 s, 30 ticks a second, loop",
                                                       "is left black by the library (the file loads no texture)"])
    failures += check_info(viewer, fixture("props.x"), ["textures found: crate.bmp", "warnings    0"])
    return failures


def check_info(viewer, scene, expected):
    code, stdout, stderr = viewer.run(scene, "--info")
    missing = [text for text in expected if text not in stdout]
    return ["--info %s: exit %d, lacks %s in:\n%s%s" % (scene, code, missing, stdout, stderr)] if code or missing else []


def check_samples(viewer):
    """Real files as a new user tries them: each shows, moves where it is animated, and --info
    tells what it holds."""
    samples = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..", "shared", "samples")
    if not os.path.isdir(samples):
        print("../shared/samples is absent: third-party sample check skipped")
        sys.exit(SKIP)
    sample = lambda name: wine_path(os.path.join(samples, name))
    failures = []
    for name, animated in (("sdk/Tiny/tiny.x", True), ("sdk/Dwarf/Dwarf.x", False), ("sdk/misc/Cube.x", False),
                           ("assimp/Testwuson.X", True), ("assimp/BCN_Epileptic.X", True)):
        pictures, _, problems = check_run(viewer, sample(name), 4, 4, size="240x180")
        failures += problems
        if pictures and animated and pictures[0] == pictures[-1]:
            failures.append(name + " stands still")
    for name in ("sdk/Tiny/tiny.x", "assimp/Testwuson.X", "assimp/BCN_Epileptic.X"):  # the skins through the effect
        failures += check_run(viewer, sample(name), 2, 4, "--skin", "effect", size="240x180")[2]
    failures += check_info(viewer, sample("sdk/MultiAnimation/tiny_4anim.x"), ["4 sets", "'Jog'", "Tiny_skin.dds did not load"])
    failures += check_info(viewer, sample("assimp/Testwuson.X"), ["'Wuson_Run' 0.97 s, 4800 ticks a second, once (plays)"])
    failures += check_info(viewer, sample("sdk/misc/Cube.x"), ["no material: drawn in neutral grey"])
    return failures


# ---------------------------------------------------------------------------------------------
# The gallery, opened in a real headless Chromium driven over its debugging pipe.

class Browser:
    """Chromium reads protocol messages on its fd 3 and answers on its fd 4, each ended by a NUL."""

    def __init__(self, executable, profile):
        to_browser, self.commands = os.pipe()
        self.answers, from_browser = os.pipe()

        def pipes_at_3_and_4():  # by way of free numbers, as the pipes may already sit at 3 or 4
            inward, outward = fcntl.fcntl(to_browser, fcntl.F_DUPFD, 10), fcntl.fcntl(from_browser, fcntl.F_DUPFD, 10)
            os.dup2(inward, 3)
            os.dup2(outward, 4)

        shutil.rmtree(profile, ignore_errors=True)
        self.process = subprocess.Popen(
            [executable, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--user-data-dir=" + profile, "--remote-debugging-pipe", "about:blank"],
            preexec_fn=pipes_at_3_and_4, close_fds=False, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_browser)
        os.close(from_browser)
        self.pending, self.events, self.last_id = b"", [], 0

    def close(self):
        self.process.kill()
        self.process.wait()
        os.close(self.commands)
        os.close(self.answers)

    def receive(self, deadline):
        while b"\0" not in self.pending:
            if not select.select([self.answers], [], [], max(0.0, deadline - time.time()))[0]:
                raise TimeoutError("Chromium did not answer")
            chunk = os.read(self.answers, 1 << 16)
            if not chunk:
                raise EOFError("Chromium closed its pipe")
            self.pending += chunk
        message, _, self.pending = self.pending.partition(b"\0")
        return json.loads(message)

    def call(self, method, session=None, **params):
        self.last_id += 1
        message = {"id": self.last_id, "method": method, "params": params}
        if session:
            message["sessionId"] = session
        os.write(self.commands, json.dumps(message).encode() + b"\0")
        deadline = time.time() + 30
        while True:
            answer = self.receive(deadline)
            if answer.get("id") == self.last_id:
                if "error" in answer:
                    raise RuntimeError("%s: %s" % (method, answer["error"]))
                return answer.get("result", {})
            self.events.append(answer)

    def wait_for(self, method, seconds=30):
        deadline = time.time() + seconds
        while not any(e.get("method") == method for e in self.events):
            self.events.append(self.receive(deadline))

    def errors(self):
        """Console errors, uncaught exceptions and failed loads the page has caused so far."""
        found = []
        for e in self.events:
            method, params = e.get("method"), e.get("params", {})
            if method == "Runtime.exceptionThrown":
                details = params["exceptionDetails"]
                found.append(details.get("exception", {}).get("description", details.get("text", "exception")))
            elif method == "Runtime.consoleAPICalled" and params.get("type") in ("error", "assert"):
                found.append("console: %s" % [a.get("value") for a in params.get("args", [])])
            elif method == "Log.entryAdded" and params["entry"]["level"] == "error":
                found.append("log: " + params["entry"]["text"])
        return found


# What the page says and does: its images, its cards by status against the summary's counts, the
# refused filter, and sorting by triangles.
PAGE_PROBE = """(() => {
  const cards = () => Array.from(document.querySelectorAll('article'));
  const counts = {}, summary = {};
  for (const c of cards()) counts[c.dataset.status] = (counts[c.dataset.status] || 0) + 1;
  for (const s of document.querySelectorAll('#summary span')) summary[s.className] = Number(s.dataset.count);
  document.querySelector('nav button[value=refused]').click();
  const refused = cards().filter(c => !c.hidden).map(c => c.dataset.path);
  document.querySelector('nav button[value=all]').click();
  const sort = document.getElementById('sort');
  sort.value = 'triangles';
  sort.dispatchEvent(new Event('change'));
  return {images: Array.from(document.images).map(i => [i.getAttribute('src'), i.complete, i.naturalWidth]),
          counts, summary, refused, triangles: cards().map(c => Number(c.dataset.triangles))};
})()"""


def open_in_browser(page, profile):
    """Loads the page from the file system; returns what PAGE_PROBE found and the page's errors."""
    chromium = shutil.which("chromium")
    if not chromium:
        print("chromium is not installed (./vexil installs it): gallery check skipped")
        sys.exit(SKIP)
    browser = Browser(chromium, profile)
    try:
        target = next(t for t in browser.call("Target.getTargets")["targetInfos"] if t["type"] == "page")
        session = browser.call("Target.attachToTarget", targetId=target["targetId"], flatten=True)["sessionId"]
        for domain in ("Runtime", "Log", "Page"):
            browser.call(domain + ".enable", session)
        browser.call("Page.navigate", session, url="file://" + os.path.abspath(page))
        browser.wait_for("Page.loadEventFired")
        found = browser.call("Runtime.evaluate", session, expression=PAGE_PROBE, returnByValue=True)["result"]["value"]
        return found, browser.errors()
    finally:
        browser.close()


def check_gallery(viewer):
    """A folder of the project's files, one in a folder of its own with the extension in capitals,
    and a damaged one: four cards with the right statuses, on a page a browser shows whole."""
    fixtures = os.path.join(viewer.build, "bin", "fixtures")
    folder, out = os.path.join(viewer.work, "gallery-files"), os.path.join(viewer.work, "gallery")
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(os.path.join(folder, "skins"))
    for name in ("props.x", "crate.bmp", "bare.x"):
        shutil.copy(os.path.join(fixtures, name), folder)
    shutil.copy(os.path.join(fixtures, "arm.x"), os.path.join(folder, "skins", "ARM.X"))
    with open(os.path.join(fixtures, "props.x")) as f, open(os.path.join(folder, "damaged.x"), "w") as g:
        g.write(f.read()[:900])
    code, stdout, stderr = viewer.run("--gallery", wine_path(folder), out=out)
    if code or "[4/4] skins/ARM.X (0 to go)" not in stdout:
        return ["gallery: exit %d, no progress line for the last file: %s %s" % (code, stdout, stderr)]
    with open(os.path.join(out, "index.html"), encoding="utf-8") as f:
        page = f.read()
    statuses = {path: status for status, path in re.findall(r'data-status="(\w+)" data-path="([^"]+)"', page)}
    expected = {"bare.x": "warned", "damaged.x": "refused", "props.x": "shown", "skins/ARM.X": "warned"}
    failures = [] if statuses == expected else ["gallery statuses %s, expected %s" % (statuses, expected)]
    if re.search(r"https?:|<script src|<link", page):
        failures.append("the page reaches outside itself")
    found, errors = open_in_browser(os.path.join(out, "index.html"), os.path.join(viewer.work, "chromium-profile"))
    failures += ["the page: " + e for e in errors]
    broken = [src for src, complete, width in found["images"] if not complete or width == 0]
    if len(found["images"]) != 3 or broken:
        failures.append("previews: %d images, not loaded: %s" % (len(found["images"]), broken))
    if any(found["summary"].get(status, 0) != count for status, count in found["counts"].items()) or \
            sum(found["summary"].values()) != 4:
        failures.append("summary %s against cards %s" % (found["summary"], found["counts"]))
    if found["refused"] != ["damaged.x"] or found["triangles"] != sorted(found["triangles"], reverse=True):
        failures.append("filtered to refused %s, sorted by triangles %s" % (found["refused"], found["triangles"]))
    # A file still drawing when its time is up becomes a card that says so.
    code, _, _ = viewer.run("--gallery", wine_path(os.path.join(folder, "skins")), "--timeout", "0.01", out=out)
    with open(os.path.join(out, "index.html"), encoding="utf-8") as f:
        if code or 'data-status="crashed"' not in f.read():
            failures.append("a file past its time limit does not become a timed-out card (exit %d)" % code)
    return failures


def main():
    build, check = sys.argv[1], sys.argv[2]
    checks = {"bundled": check_bundled, "errors": check_errors, "fixtures": check_fixtures, "gallery": check_gallery,
              "samples": check_samples}
    failures = checks[check](Viewer(build))
    for failure in failures:
        print("FAILED: " + failure)
    print("%d passed, %d failed" % (0 if failures else 1, 1 if failures else 0))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
