# Web pages of the application-window corpus: each line of text is an element of class "t" carrying the text
# a reader should return in data-t; a script lists their boxes (CSS pixels) for the cutter.
import html as _html

RECTS = """<pre id="rects" style="display:none"></pre><script>
document.getElementById('rects').textContent = JSON.stringify([...document.querySelectorAll('.t')].map(e => {
  const r = e.getBoundingClientRect(); return [e.dataset.t, [r.x, r.y, r.width, r.height]]; }));
</script>"""

LIGHT = "body{background:#fff;color:#1f2328}"
DARK = "body{background:#0d1117;color:#e6edf3} a{color:#4493f8} .meta{color:#8b949e!important}"
BASE = """body{margin:24px 32px;font-family:'DejaVu Sans','Noto Sans CJK SC',sans-serif;font-size:15px}
.t{width:fit-content;white-space:nowrap} .meta{color:#6e7781;font-size:12px;margin:4px 0 14px}
p{margin:0 0 6px} h1{font-size:26px;margin:0 0 4px} h2{font-size:19px;margin:14px 0 6px}
.nav{display:flex;gap:4px;margin-bottom:14px} .nav span{padding:5px 10px;border-radius:6px}
.nav .sel{background:#0969da;color:#fff} .btn{display:inline-block;padding:7px 16px;border-radius:6px;
border:1px solid #d0d7de;background:#f6f8fa;margin-right:8px} .primary{background:#1f883d;color:#fff;
border-color:#1f883d} .blue{background:#0969da;color:#fff;border-color:#0969da}
label{display:block;font-weight:600;margin:10px 0 4px} input[type=text]{font:inherit;padding:5px 8px;
width:280px;border:1px solid #d0d7de;border-radius:6px} .check{margin:8px 0} .check input{margin-right:8px}
table{border-collapse:collapse} td,th{padding:6px 14px;border-bottom:1px solid #d0d7de;text-align:left}
th{background:#f6f8fa} tr:nth-child(even) td{background:#f9fafb} .badge{padding:2px 8px;border-radius:10px;
font-size:12px;color:#fff} .ok{background:#1a7f37} .warn{background:#bf8700} .bad{background:#cf222e}
pre{font-family:'DejaVu Sans Mono',monospace;font-size:13px;background:#f6f8fa;padding:12px 16px;
border-radius:6px;margin:0} .k{color:#cf222e} .s{color:#0a3069} .c{color:#6e7781} .f{color:#8250df}"""
DARK_EXTRA = """th{background:#161b22} tr:nth-child(even) td{background:#11161d} td,th{border-color:#30363d}
pre{background:#161b22} .k{color:#ff7b72} .s{color:#a5d6ff} .c{color:#8b949e} .f{color:#d2a8ff}
.btn{background:#21262d;border-color:#30363d;color:#e6edf3} .primary{background:#238636;border-color:#238636}
input[type=text]{background:#0d1117;color:#e6edf3;border-color:#30363d}"""


def line(truth, inner=None, tag="div", cls=""):
    inner = _html.escape(truth) if inner is None else inner
    return '<%s class="t %s" data-t="%s">%s</%s>' % (tag, cls, _html.escape(truth, quote=True), inner, tag)


def page(body, dark=False):
    style = BASE + (DARK + DARK_EXTRA if dark else LIGHT)
    return "<!doctype html><html><head><meta charset=utf-8><style>%s</style></head><body>%s%s</body></html>" % (
        style, body, RECTS)


def article(title, meta, paragraphs, nav=None):
    parts = []
    if nav:
        items = "".join('<span class="%s">%s</span>' % ("sel" if i == 1 else "", _html.escape(n))
                        for i, n in enumerate(nav))
        parts.append(line(" ".join(nav), items, cls="nav"))
    parts.append(line(title, tag="h1"))
    parts.append(line(meta, cls="meta"))
    parts += [line(p, tag="p") for p in paragraphs]
    return "".join(parts)


ARTICLE_EN = article(
    "Why screens are hard to read", "By Anna Li · 6 min read · March 3, 2025",
    ["Text on a screen is small, smooth and often light on dark.",
     "A scanner sees print at three hundred dots per inch;",
     "a laptop shows the same letters with a tenth of the pixels.",
     "Readers trained on paper therefore stumble on buttons,",
     "menus and the coloured badges of a busy dashboard."])
ARTICLE_ZH = article(
    "屏幕文字识别的难点", "作者 李安娜 · 阅读 6 分钟 · 2025年3月3日",
    ["屏幕上的文字很小，边缘平滑，而且常常是深色背景上的浅色字。",
     "扫描仪看到的纸张分辨率是每英寸三百点，",
     "而笔记本电脑只用十分之一的像素显示同样的字。",
     "因此在纸上训练的识别器遇到按钮和菜单时容易出错。"])

FORM_EN = "".join([
    line("Create your account", tag="h1"),
    line("Full name", tag="label"), line("Maria Schmidt", '<input type="text" value="Maria Schmidt">'),
    line("Email address", tag="label"), line("maria@example.org", '<input type="text" value="maria@example.org">'),
    line("Keep me signed in on this device", '<input type="checkbox">Keep me signed in on this device',
         cls="check"),
    line("Send me the monthly newsletter", '<input type="checkbox" checked>Send me the monthly newsletter',
         cls="check"),
    line("Cancel Create account", '<span class="btn">Cancel</span><span class="btn primary">Create account</span>'),
])
FORM_ZH = "".join([
    line("创建账户", tag="h1"),
    line("姓名", tag="label"), line("张小明", '<input type="text" value="张小明">'),
    line("电子邮件地址", tag="label"), line("zhang@example.cn", '<input type="text" value="zhang@example.cn">'),
    line("在此设备上保持登录", '<input type="checkbox">在此设备上保持登录', cls="check"),
    line("订阅每月通讯", '<input type="radio" checked>订阅每月通讯', cls="check"),
    line("取消 创建账户", '<span class="btn">取消</span><span class="btn blue">创建账户</span>'),
])


def table(head, rows):
    def tr(cells, th=False):
        cell = "th" if th else "td"
        inner = "".join("<%s>%s</%s>" % (cell, c if c.startswith("<") else _html.escape(c), cell) for c in cells)
        truth = " ".join(_html.unescape(__import__("re").sub("<[^>]+>", "", c)) for c in cells)
        return '<tr class="t" data-t="%s">%s</tr>' % (_html.escape(truth, quote=True), inner)

    return "<table>%s%s</table>" % (tr(head, True), "".join(tr(r) for r in rows))


TABLE_EN = table(["Service", "Region", "Latency", "Status"], [
    ["api-gateway", "eu-west-1", "42 ms", '<span class="badge ok">Healthy</span>'],
    ["billing", "us-east-2", "118 ms", '<span class="badge warn">Degraded</span>'],
    ["search-index", "ap-south-1", "87 ms", '<span class="badge ok">Healthy</span>'],
    ["mail-relay", "eu-central-1", "503 ms", '<span class="badge bad">Down</span>'],
])
TABLE_ZH = table(["服务", "地区", "延迟", "状态"], [
    ["接口网关", "华东一区", "42 ms", '<span class="badge ok">正常</span>'],
    ["计费系统", "华北二区", "118 ms", '<span class="badge warn">降级</span>'],
    ["搜索索引", "华南一区", "87 ms", '<span class="badge ok">正常</span>'],
    ["邮件中继", "西南一区", "503 ms", '<span class="badge bad">故障</span>'],
])

CODE_LINES = [
    ('<span class="c"># Count the words of a file</span>', "# Count the words of a file"),
    ('<span class="k">def</span> <span class="f">count_words</span>(path):', "def count_words(path):"),
    ('    counts = {}', "counts = {}"),
    ('    <span class="k">with</span> open(path) <span class="k">as</span> f:', "with open(path) as f:"),
    ('        <span class="k">for</span> word <span class="k">in</span> f.read().split():',
     "for word in f.read().split():"),
    ('            counts[word] = counts.get(word, 0) + 1', "counts[word] = counts.get(word, 0) + 1"),
    ('    <span class="k">return</span> counts', "return counts"),
]
CODE_JS = [
    ('<span class="k">function</span> <span class="f">greet</span>(name) {', "function greet(name) {"),
    ('    <span class="k">if</span> (!name) {', "if (!name) {"),
    ('        <span class="k">return</span> <span class="s">"Hello, world"</span>;', 'return "Hello, world";'),
    ('    }', "}"),
    ('    <span class="k">return</span> <span class="s">`Hello, ${name}`</span>;', "return `Hello, ${name}`;"),
    ('}', "}"),
]


def code(lines):
    return "<pre>%s</pre>" % "\n".join(
        '%s<span class="t" data-t="%s" style="display:inline-block">%s</span>'
        % (" " * (len(h) - len(h.lstrip())), _html.escape(t, quote=True), h.lstrip())
        for h, t in lines)


NAV_EN = ["Home", "Settings", "Billing", "Help"]
NAV_ZH = ["首页", "设置", "账单", "帮助"]

# name: (kind, device pixel ratio, html, cut through the first line too)
PAGES = {
    "article-en": ("web-article", 1, page(ARTICLE_EN), True),
    "article-zh": ("web-article", 1, page(ARTICLE_ZH), True),
    "form-en": ("web-form", 1, page(FORM_EN), True),
    "form-zh": ("web-form", 1, page(FORM_ZH), True),
    "table-en": ("web-table", 1, page(TABLE_EN), True),
    "table-zh": ("web-table", 1, page(TABLE_ZH), True),
    "code-py": ("web-code", 1, page(code(CODE_LINES)), True),
    "code-js-dark": ("web-code", 1, page(code(CODE_JS), True), True),
    "dark-article-en": ("web-dark", 1, page(article("Account overview", "Updated 2 minutes ago · 3 alerts",
                                                    ["Your plan renews on the first of next month.",
                                                     "Two devices signed in from a new location."],
                                                    NAV_EN), True), True),
    "dark-article-zh": ("web-dark", 1, page(ARTICLE_ZH.replace("屏幕文字", "深色模式下的"), True), True),
    "dark-form-en": ("web-dark", 1, page(FORM_EN, True), True),
    "2x-article-en": ("2x", 2, page(ARTICLE_EN), True),
    "2x-code-js": ("2x", 2, page(code(CODE_JS)), True),
    "2x-table-zh": ("2x", 2, page(TABLE_ZH), True),
    "2x-dark-zh": ("2x", 2, page(article("账户概览", "两分钟前更新 · 3 条提醒", ["您的套餐将于下月一日续订。"], NAV_ZH), True),
                   True),
}
