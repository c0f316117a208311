#!/usr/bin/python3
# Renders application windows with real toolkits (HTML pages in headless Chromium, GTK 3, Tk, zenity and yad
# dialogs, xterm) under Xvfb, and cuts regions out of them the way a user drags them: with a few pixels of
# slack that catch the neighbouring widgets, and sometimes through a line above the text. Writes
# KIND__NAME.png with KIND__NAME.gt.txt (the text a reader should return) into the output folder.
# usage: generate.py OUTPUT_DIR [--seed N]
# Needs: xvfb, chromium, python3-gi with gir1.2-gtk-3.0, python3-tk, zenity, yad, xterm, xdotool,
# imagemagick, fonts-noto-cjk.
import argparse
import json
import os
import random
import re
import subprocess
import sys
import tempfile
import time

from pages import PAGES

HERE = os.path.dirname(os.path.abspath(__file__))
DISPLAY = ":97"


def run(*args, **kw):
    return subprocess.run(list(args), check=True, capture_output=True, text=True, **kw).stdout


def size_of(png):
    w, h = run("identify", "-format", "%w %h", png).split()
    return int(w), int(h)


def crop(shot, box, out, truth):
    x, y, w, h = box
    sw, sh = size_of(shot)
    x, y = max(0, x), max(0, y)
    w, h = min(w, sw - x), min(h, sh - y)
    run("convert", shot, "-crop", "%dx%d+%d+%d" % (w, h, x, y), "+repage", "-strip", out + ".png")
    with open(out + ".gt.txt", "w", encoding="utf-8") as f:
        f.write("\n".join(truth) + "\n")


def cuts(rng, shot, lines, out, scale=1, cut_above=True, part=True):
    """Dragged regions over one window: all its lines, and (with enough lines) one through the line above
    and one over a few lines in the middle. `lines`: [(text, (x, y, w, h))] in reading order."""
    def around(chosen, top=None):
        x0 = min(b[0] for _, b in chosen)
        y0 = min(b[1] for _, b in chosen) if top is None else top
        x1 = max(b[0] + b[2] for _, b in chosen)
        y1 = max(b[1] + b[3] for _, b in chosen)
        s = lambda: rng.randint(3, 14) * scale
        left, right, bottom = x0 - s(), x1 + s(), y1 + s()
        top = y0 - s() if top is None else top
        return (left, top, right - left, bottom - top)

    crop(shot, around(lines), out + "_all", [t for t, _ in lines])
    made = 1
    if cut_above and len(lines) >= 3:
        first = lines[0][1]
        top = first[1] + int(first[3] * rng.uniform(0.45, 0.7))
        crop(shot, around(lines[1:], top), out + "_cut", [t for t, _ in lines[1:]])
        made += 1
    if part and len(lines) >= 5:
        start = rng.randint(1, len(lines) - 3)
        chosen = lines[start : start + rng.randint(2, 3)]
        # Dragged from just above the first line chosen: into the gap, not through the line before it.
        prev = lines[start - 1][1]
        gap = max(1, chosen[0][1][1] - (prev[1] + prev[3]))
        top = chosen[0][1][1] - rng.randint(0, min(gap, 14 * scale))
        crop(shot, around(chosen, top), out + "_part", [t for t, _ in chosen])
        made += 1
    return made


def web(rng, outdir, tmp):
    made = 0
    for name, (kind, scale, html, cut_above) in PAGES.items():
        page = os.path.join(tmp, name + ".html")
        with open(page, "w", encoding="utf-8") as f:
            f.write(html)
        common = ["chromium", "--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                  "--window-size=900,700", "--force-device-scale-factor=%d" % scale]
        shot = os.path.join(tmp, name + ".png")
        run(*common, "--screenshot=" + shot, "file://" + page)
        dom = run(*common, "--dump-dom", "file://" + page)
        rects = json.loads(re.search(r'<pre id="rects"[^>]*>(.*?)</pre>', dom, re.S).group(1))
        lines = [(t, tuple(int(round(v * scale)) for v in r)) for t, r in rects]
        made += cuts(rng, shot, lines, os.path.join(outdir, kind + "__" + name), scale, cut_above)
    return made


def shoot(tmp, name):
    shot = os.path.join(tmp, name + ".png")
    run("import", "-display", DISPLAY, "-window", "root", shot)
    return shot


def toolkit(rng, outdir, tmp, env):
    made = 0
    scenes = [("gtk", s) for s in ("settings-en", "settings-zh", "files-en", "files-zh")] + [
        ("tk", s) for s in ("dialog-en", "dialog-zh", "print-en")]
    for tk, scene in scenes:
        for dark in (False, True):
            for scale in ((1, 2) if tk == "gtk" and not dark else (1,)):
                e = dict(env, GDK_SCALE=str(scale))
                args = ["/usr/bin/python3", os.path.join(HERE, "toolkit_scene.py"), tk, scene]
                if dark:
                    args.append("dark")
                p = subprocess.Popen(args, env=e, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
                # GTK reports logical pixels; the screen has `scale` device pixels for each.
                lines = [(l["text"], tuple(v * (scale if tk == "gtk" else 1) for v in l["box"]))
                         for l in json.loads(p.stdout.readline())]
                name = "%s-%s%s" % (scene, "dark" if dark else "light", "-2x" if scale == 2 else "")
                shot = shoot(tmp, name)
                p.stdin.write("\n")
                p.stdin.flush()
                p.wait(timeout=20)
                kind = "2x" if scale == 2 else tk
                made += cuts(rng, shot, lines, os.path.join(outdir, kind + "__" + tk + "-" + name), scale)
    return made


def window_box(env, pid):
    wid = run("xdotool", "search", "--sync", "--onlyvisible", "--pid", str(pid), env=env).split()[-1]
    time.sleep(1.5)
    geo = dict(l.split("=") for l in run("xdotool", "getwindowgeometry", "--shell", wid, env=env).split())
    return int(geo["X"]), int(geo["Y"]), int(geo["WIDTH"]), int(geo["HEIGHT"])


DIALOGS = [
    ("zenity-question-en", ["zenity", "--question", "--title=Unsaved changes",
                            "--text=Save changes to the document before closing?\nYour changes will be lost.",
                            "--ok-label=Save", "--cancel-label=Discard"],
     ["Save changes to the document before closing?", "Your changes will be lost.", "Discard Save"]),
    ("zenity-warning-zh", ["zenity", "--warning", "--title=警告", "--text=无法连接到服务器。\n请检查网络设置后重试。",
                           "--ok-label=确定"],
     ["无法连接到服务器。", "请检查网络设置后重试。", "确定"]),
    ("zenity-info-en", ["zenity", "--info", "--title=Update", "--text=Version 2.4 has been installed.",
                        "--ok-label=OK"],
     ["Version 2.4 has been installed.", "OK"]),
    ("yad-question-zh", ["yad", "--title=删除文件", "--image=dialog-question",
                         "--text=确定要永久删除这 3 个文件吗？\n此操作无法撤销。", "--button=取消:1", "--button=删除:0"],
     ["确定要永久删除这 3 个文件吗？", "此操作无法撤销。", "取消 删除"]),
    ("yad-error-en", ["yad", "--title=Error", "--image=dialog-error",
                      "--text=The file could not be opened.\nPermission denied.", "--button=Close:0"],
     ["The file could not be opened.", "Permission denied.", "Close"]),
]


def dialogs(rng, outdir, tmp, env):
    made = 0
    for name, args, truth in DIALOGS:
        for dark in (False, True):
            e = dict(env, GTK_THEME="Adwaita:dark" if dark else "Adwaita")
            p = subprocess.Popen(args, env=e, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            try:
                x, y, w, h = window_box(e, p.pid)
                shot = shoot(tmp, name)
            finally:
                p.kill()
                p.wait()
            s = lambda: rng.randint(-4, 10)
            box = (x - s(), y - s(), w + 2 * s(), h + 2 * s())
            crop(shot, box, os.path.join(outdir, "dialog__%s-%s" % (name, "dark" if dark else "light")), truth)
            made += 1
    return made


TERMINAL = [
    ("\\e[1;32malice@laptop\\e[0m:\\e[1;34m~/src/vontrel\\e[0m$ git status", "alice@laptop:~/src/vontrel$ git status"),
    ("On branch main", "On branch main"),
    ("Changes not staged for commit:", "Changes not staged for commit:"),
    ("        \\e[31mmodified:   src/ocr/TextMask.cpp\\e[0m", "modified: src/ocr/TextMask.cpp"),
    ("\\e[44;97m main \\e[0m\\e[42;30m +2 \\e[0m \\e[1;33m~/notes\\e[0m make test", "main +2 ~/notes make test"),
    ("\\e[32mPASS\\e[0m  test_config (0.41 s)", "PASS test_config (0.41 s)"),
    ("\\e[41;97m FAIL \\e[0m test_network: 连接超时", "FAIL test_network: 连接超时"),
    ("\\e[1;32mbob@server\\e[0m:\\e[1;34m/var/log\\e[0m$ tail -n 2 syslog", "bob@server:/var/log$ tail -n 2 syslog"),
]


def terminals(rng, outdir, tmp, env):
    made = 0
    script = os.path.join(tmp, "prompt.sh")
    with open(script, "w") as f:
        f.write("clear\n" + "".join("printf '%s\\n'\n" % line for line, _ in TERMINAL) + "sleep 60\n")
    for theme, (bg, fg) in {"dark": ("#1e1e1e", "#d0d0d0"), "light": ("#ffffff", "#202020")}.items():
        for size in (10, 12):
            args = ["xterm", "-fa", "DejaVu Sans Mono", "-fs", str(size), "-bg", bg, "-fg", fg, "-geometry",
                    "64x%d+30+30" % (len(TERMINAL) + 1), "-e", "bash", script]
            p = subprocess.Popen(args, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            try:
                x, y, w, h = window_box(env, p.pid)
                shot = shoot(tmp, "xterm")
            finally:
                p.kill()
                p.wait()
            cell = h / (len(TERMINAL) + 1)
            lines = [(truth, (x + 2, int(y + 2 + i * cell), int(w * 0.8), int(cell)))
                     for i, (_, truth) in enumerate(TERMINAL)]
            made += cuts(rng, shot, lines, os.path.join(outdir, "terminal__xterm-%s-%d" % (theme, size)))
    return made


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("outdir")
    parser.add_argument("--seed", type=int, default=5)
    a = parser.parse_args()
    os.makedirs(a.outdir, exist_ok=True)
    rng = random.Random(a.seed)
    env = dict(os.environ, DISPLAY=DISPLAY, NO_AT_BRIDGE="1", LANG="C.UTF-8")
    xvfb = subprocess.Popen(["Xvfb", DISPLAY, "-screen", "0", "1400x1000x24", "-nolisten", "tcp", "-br"],
                            stderr=subprocess.DEVNULL)
    time.sleep(1)
    made = 0
    try:
        with tempfile.TemporaryDirectory() as tmp:
            made += web(rng, a.outdir, tmp)
            made += toolkit(rng, a.outdir, tmp, env)
            made += dialogs(rng, a.outdir, tmp, env)
            made += terminals(rng, a.outdir, tmp, env)
    finally:
        xvfb.terminate()
        xvfb.wait()
    print("%d application-window regions in %s" % (made, a.outdir))


if __name__ == "__main__":
    sys.exit(main())
