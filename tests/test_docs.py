"""The examples of docs/ as written: ```pycon blocks as doctests, ```python blocks
executed, in order, one namespace per page, from the repository's root."""
import doctest
import io
import os
import re

import pytest

from conftest import ROOT

DOCS = os.path.join(ROOT, "docs")
PAGES = sorted(name for name in os.listdir(DOCS) if name.endswith(".md"))
BLOCK = re.compile(r"^```(pycon|python)\n(.*?)^```$", re.M | re.S)


def test_every_page_has_examples():
    assert PAGES and all(BLOCK.search(open(os.path.join(DOCS, p), encoding="utf-8").read()) for p in PAGES)


@pytest.mark.parametrize("page", PAGES)
def test_examples_of(page, monkeypatch):
    monkeypatch.chdir(ROOT)
    text = open(os.path.join(DOCS, page), encoding="utf-8").read()
    globs = {"__name__": "docs"}
    parser = doctest.DocTestParser()
    out = io.StringIO()
    runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS)
    for match in BLOCK.finditer(text):
        kind, body = match.groups()
        lineno = text.count("\n", 0, match.start()) + 1
        if kind == "python":
            exec(compile(body, "%s:%d" % (page, lineno), "exec"), globs)
            continue
        test = parser.get_doctest(body, globs, "%s:%d" % (page, lineno), page, lineno)
        runner.run(test, out=out.write, clear_globs=False)
        globs = test.globs  # a doctest works on a copy: carry it on to the next block
    assert runner.failures == 0, out.getvalue()
