"""The examples of docs/ and of the README as written: ```pycon blocks as
doctests, ```python blocks executed, in order, one namespace per page, from
the repository's root."""
import doctest
import functools
import io
import os
import re

import pytest

from conftest import ROOT

PAGES = sorted("docs/" + name for name in os.listdir(os.path.join(ROOT, "docs")) if name.endswith(".md"))
PAGES.append("README.md")
BLOCK = re.compile(r"^```(pycon|python)\n(.*?)^```$", re.M | re.S)


def examples(page):
    """(kind, text, line number) of each example of the page."""
    text = open(os.path.join(ROOT, page), encoding="utf-8").read()
    return [(m.group(1), m.group(2), text.count("\n", 0, m.start()) + 1) for m in BLOCK.finditer(text)]


@functools.lru_cache()
def readme_code():
    """The names the README's ```python blocks define: its Usage example."""
    globs = {"__name__": "docs"}
    for kind, body, lineno in examples("README.md"):
        if kind == "python":
            exec(compile(body, "README.md:%d" % lineno, "exec"), globs)
    return globs


def test_every_page_has_examples():
    assert all(examples(page) for page in PAGES)


@pytest.mark.parametrize("page", PAGES)
def test_examples_of(page, monkeypatch):
    monkeypatch.chdir(ROOT)
    globs = {"__name__": "docs"}
    parser = doctest.DocTestParser()
    out = io.StringIO()
    runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS)
    for kind, body, lineno in examples(page):
        if kind == "python":
            exec(compile(body, "%s:%d" % (page, lineno), "exec"), globs)
            continue
        test = parser.get_doctest(body, globs, "%s:%d" % (page, lineno), page, lineno)
        runner.run(test, out=out.write, clear_globs=False)
        globs = test.globs  # a doctest works on a copy: carry it on to the next block
    assert runner.failures == 0, out.getvalue()
