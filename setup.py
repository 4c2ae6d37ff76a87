"""Build of the vxrcomn extension module (C++17 over the CPython C API)."""
import glob
import os

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext
from setuptools.command.install import install

HERE = os.path.dirname(os.path.abspath(__file__))


class BuildExt(build_ext):
    """Chooses C++17 flags for the compiler at hand; VXR_WERROR=1 makes
    warnings errors (the Makefile and CI set it)."""

    def build_extensions(self):
        strict = os.environ.get("VXR_WERROR") == "1"
        if self.compiler.compiler_type == "msvc":
            flags = ["/std:c++17", "/EHsc", "/W3", "/utf-8"] + (["/WX"] if strict else [])
        else:
            # Without sized deallocation the module asks nothing of
            # libstdc++ newer than its oldest manylinux versions offer.
            flags = ["-std=c++17", "-Wall", "-Wextra", "-fvisibility=hidden", "-fno-sized-deallocation"]
            flags += ["-Werror"] if strict else []
            flags += os.environ.get("VXR_EXTRA_CFLAGS", "").split()
            # The interpreter's C-only warning flags make g++ complain.
            for opt in ("-Wstrict-prototypes",):
                if opt in self.compiler.compiler_so:
                    self.compiler.compiler_so.remove(opt)
        for ext in self.extensions:
            ext.extra_compile_args = flags
            ext.extra_link_args = os.environ.get("VXR_EXTRA_LDFLAGS", "").split()
        super().build_extensions()

    def run(self):
        super().run()
        if not self.inplace:  # in place, the stub is already beside the module
            self.install_stubs(self.build_lib)

    def install_stubs(self, lib):
        """The type stub beside the extension module, where editors and
        pyright look, and in the stub-only package vxrcomn-stubs with its
        py.typed marker, where mypy looks: a single module cannot carry
        py.typed, only a package can."""
        stubs = os.path.join(lib, "vxrcomn-stubs")
        self.mkpath(stubs)
        self.copy_file(os.path.join(HERE, "vxrcomn.pyi"), os.path.join(lib, "vxrcomn.pyi"))
        self.copy_file(os.path.join(HERE, "vxrcomn.pyi"), os.path.join(stubs, "__init__.pyi"))
        self.copy_file(os.path.join(HERE, "py.typed"), os.path.join(stubs, "py.typed"))


class Install(install):
    """Debian's setuptools, which builds for interpreters without one of
    their own, asks the install command for two Debian-only options."""

    def initialize_options(self):
        super().initialize_options()
        for option in ("install_layout", "prefix_option"):
            if not hasattr(self, option):
                setattr(self, option, None)


sources = sorted(
    os.path.relpath(p, HERE).replace(os.sep, "/")
    for p in glob.glob(os.path.join(HERE, "src", "**", "*.cpp"), recursive=True)
)

setup(
    name="vxrcomn",
    version="0.1.0",
    description="Common functions of the VXR data-conversion tools (PSLF EPC and KORA RAW reading)",
    long_description=open(os.path.join(HERE, "README.md"), encoding="utf-8").read(),
    long_description_content_type="text/markdown",
    license="Proprietary",
    # The module reads interpreter internals that change between versions
    # (the handled-exception slot, type version tags): it claims only the
    # versions it is built and tested on.
    python_requires=">=3.9, <3.16",
    classifiers=[
        "Programming Language :: C++",
        "Programming Language :: Python :: 3",
        *("Programming Language :: Python :: 3.%d" % minor for minor in range(9, 16)),
        "Programming Language :: Python :: Implementation :: CPython",
        "Operating System :: Microsoft :: Windows",
        "Operating System :: POSIX :: Linux",
        "License :: Other/Proprietary License",
    ],
    ext_modules=[
        Extension(
            "vxrcomn",
            sources=sources,
            include_dirs=["src"],
            depends=sorted(glob.glob("src/**/*.hpp", recursive=True) + glob.glob("src/*.def")),
            language="c++",
        )
    ],
    cmdclass={"build_ext": BuildExt, "install": Install},
    zip_safe=False,
)
