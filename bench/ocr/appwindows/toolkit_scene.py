#!/usr/bin/python3
# Shows one GTK 3 or Tk window on the current X display, waits until it is drawn, and prints the root
# coordinates of each text line as JSON: [{"text": ..., "box": [x, y, w, h]}, ...] in reading order.
# usage: toolkit_scene.py gtk|tk SCENE [dark]
import json
import subprocess
import sys

toolkit, scene = sys.argv[1], sys.argv[2]
dark = len(sys.argv) > 3 and sys.argv[3] == "dark"

GTK_SCENES = {
    "settings-en": dict(
        title="Network Settings",
        rows=["Wired connection", "Office Wi-Fi 5G", "Guest network"],
        selected=1,
        checks=["Connect automatically", "Share this connection with other users"],
        entry="proxy.example.org",
        buttons=["Cancel", "Apply"],
    ),
    "settings-zh": dict(
        title="网络设置",
        rows=["有线连接", "办公室无线网络", "访客网络"],
        selected=0,
        checks=["自动连接", "允许其他用户使用此连接"],
        entry="代理服务器地址",
        buttons=["取消", "应用"],
    ),
    "files-en": dict(
        title="Recent Documents",
        rows=["Quarterly report.odt", "Budget 2025.ods", "Meeting notes.txt", "Travel plan.pdf"],
        selected=2,
        checks=["Show hidden files"],
        entry="Search documents",
        buttons=["Close", "Open"],
    ),
    "files-zh": dict(
        title="最近使用的文档",
        rows=["季度报告.odt", "年度预算.ods", "会议记录.txt"],
        selected=1,
        checks=["显示隐藏文件", "按修改时间排序"],
        entry="搜索文档",
        buttons=["关闭", "打开"],
    ),
}


def gtk_scene():
    import gi

    gi.require_version("Gtk", "3.0")
    from gi.repository import GLib, Gtk

    scene_def = GTK_SCENES[scene]
    Gtk.Settings.get_default().set_property("gtk-application-prefer-dark-theme", dark)
    window = Gtk.Window(title=scene_def["title"])
    window.move(40, 40)
    box = Gtk.Box(orientation=Gtk.Orientation.VERTICAL, spacing=8)
    box.set_border_width(14)
    window.add(box)
    lines = []
    title = Gtk.Label()
    title.set_markup("<b><big>%s</big></b>" % GLib.markup_escape_text(scene_def["title"]))
    title.set_xalign(0)
    box.pack_start(title, False, False, 0)
    lines.append((scene_def["title"], title))
    listbox = Gtk.ListBox()
    rows = []
    for text in scene_def["rows"]:
        row = Gtk.ListBoxRow()
        label = Gtk.Label(label=text, xalign=0)
        label.set_margin_start(8)
        label.set_margin_top(5)
        label.set_margin_bottom(5)
        row.add(label)
        listbox.add(row)
        rows.append(row)
        lines.append((text, label))
    frame = Gtk.Frame()
    frame.add(listbox)
    box.pack_start(frame, False, False, 0)
    for text in scene_def["checks"]:
        check = Gtk.CheckButton(label=text)
        box.pack_start(check, False, False, 0)
        lines.append((text, check))
    entry = Gtk.Entry()
    entry.set_text(scene_def["entry"])
    box.pack_start(entry, False, False, 0)
    lines.append((scene_def["entry"], entry))
    buttons = Gtk.Box(spacing=8)
    for i, text in enumerate(scene_def["buttons"]):
        button = Gtk.Button(label=text)
        if i == len(scene_def["buttons"]) - 1:
            button.get_style_context().add_class("suggested-action")
        buttons.pack_start(button, False, False, 0)
    box.pack_start(buttons, False, False, 0)
    lines.append((" ".join(scene_def["buttons"]), buttons))
    window.show_all()
    listbox.select_row(rows[scene_def["selected"]])
    window.set_focus(None)

    def report():
        origin = window.get_window().get_origin()
        out = []
        for text, widget in lines:
            a = widget.get_allocation()
            x, y = widget.translate_coordinates(window, 0, 0)
            out.append({"text": text, "box": [origin.x + x, origin.y + y, a.width, a.height]})
        print(json.dumps(out), flush=True)
        sys.stdin.readline()
        Gtk.main_quit()
        return False

    GLib.timeout_add(1200, report)
    Gtk.main()


TK_SCENES = {
    "dialog-en": dict(
        title="Export Settings",
        rows=["Portable Document Format", "Plain text", "Rich text document"],
        selected=0,
        checks=["Include comments", "Open the file when done"],
        buttons=["Cancel", "Export"],
    ),
    "dialog-zh": dict(
        title="导出设置",
        rows=["便携式文档格式", "纯文本", "富文本文档"],
        selected=2,
        checks=["包含批注", "完成后打开文件"],
        buttons=["取消", "导出"],
    ),
    "print-en": dict(
        title="Print Options",
        rows=["Office printer (2nd floor)", "Save to file", "Photo printer"],
        selected=1,
        checks=["Print on both sides"],
        buttons=["Close", "Print"],
    ),
}


def tk_scene():
    import tkinter as tk

    scene_def = TK_SCENES[scene]
    root = tk.Tk()
    root.geometry("+40+40")
    bg, fg = ("#2b2b2b", "#e6e6e6") if dark else ("#d9d9d9", "#000000")
    root.configure(bg=bg)
    lines = []
    title = tk.Label(root, text=scene_def["title"], font=("DejaVu Sans", 12, "bold"), bg=bg, fg=fg, anchor="w")
    title.pack(fill="x", padx=12, pady=(10, 4))
    lines.append((scene_def["title"], title, None))
    listbox = tk.Listbox(root, height=len(scene_def["rows"]), bg="#1e1e1e" if dark else "white", fg=fg,
                         selectbackground="#3874d8", selectforeground="white", exportselection=False)
    for text in scene_def["rows"]:
        listbox.insert("end", text)
    listbox.selection_set(scene_def["selected"])
    listbox.pack(fill="x", padx=12, pady=4)
    for i, text in enumerate(scene_def["rows"]):
        lines.append((text, listbox, i))
    for text in scene_def["checks"]:
        check = tk.Checkbutton(root, text=text, bg=bg, fg=fg, selectcolor="#1e1e1e" if dark else "white",
                               activebackground=bg, highlightthickness=0, anchor="w")
        check.pack(fill="x", padx=12)
        lines.append((text, check, None))
    row = tk.Frame(root, bg=bg)
    row.pack(fill="x", padx=12, pady=10)
    for text in scene_def["buttons"]:
        tk.Button(row, text=text, bg=bg, fg=fg, highlightthickness=0).pack(side="left", padx=(0, 8))
    lines.append((" ".join(scene_def["buttons"]), row, None))

    def report():
        out = []
        for text, widget, index in lines:
            x, y, w, h = widget.winfo_rootx(), widget.winfo_rooty(), widget.winfo_width(), widget.winfo_height()
            if index is not None:
                bx, by, bw, bh = listbox.bbox(index)
                x, y, w, h = x + bx, y + by, bw + 4, bh
            out.append({"text": text, "box": [x, y, w, h]})
        print(json.dumps(out), flush=True)
        sys.stdin.readline()
        root.destroy()

    root.after(1200, report)
    root.mainloop()


if toolkit == "gtk":
    gtk_scene()
else:
    tk_scene()
