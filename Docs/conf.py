# How Sphinx makes the manual in HTML: cmake --build build --target manual
import pathlib
import re

from pygments.lexers.shell import BashSessionLexer

root = pathlib.Path(__file__).resolve().parent.parent
project = "Talora"
copyright = "2026 The Talora authors"
version = release = re.search(r"project\(Talora VERSION (\S+)", (root / "CMakeLists.txt").read_text())[1]
extensions = ["myst_parser"]
myst_heading_anchors = 3
myst_enable_extensions = ["colon_fence"]
exclude_patterns = ["conf.py", "manual.css"]
smartquotes = False
html_theme = "alabaster"
html_title = "Talora"
html_static_path = ["manual.css"]
html_css_files = ["manual.css"]
html_show_sphinx = False
html_show_sourcelink = False
html_sidebars = {"**": ["about.html", "searchbox.html", "navigation.html"]}
html_theme_options = {
    "description": "Exact inference in Bayesian belief networks",
    "fixed_sidebar": True,
    "page_width": "1180px",
    "sidebar_width": "230px",
    "font_family": "system-ui, sans-serif",
    "head_font_family": "system-ui, sans-serif",
    "font_size": "16px",
    "show_related": False,
    "sidebar_collapse": True,
}
highlight_language = "text"
pygments_style = "friendly"


def mend_links(app, name, source):
    """Links to pages and folders outside Docs lead nowhere in HTML; their text stays. Links that give the name
    of a file as their text show the title of its page instead."""
    page = pathlib.Path(app.srcdir) / name

    def link(match):
        target = (page.parent / match[2].partition("#")[0]).resolve()
        leaves = root / "Docs" not in target.parents and not match[2].startswith(("#", "http"))
        if leaves:
            return match[1] if target.is_dir() or target.suffix == ".md" else match[0]
        return f"[]({match[2]})" if match[1].endswith(".md") else match[0]
    source[0] = re.sub(r"\[([^\]\n]*)\]\(([^)\s]+)\)", link, source[0])


def setup(app):
    app.add_lexer("sh", BashSessionLexer)  # what is typed apart from what is printed
    app.connect("source-read", mend_links)
