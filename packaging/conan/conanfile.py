"""The recipe of kiv for Conan 2: both DLLs, built from the sources beside it."""

import os

from conan import ConanFile
from conan.errors import ConanInvalidConfiguration
from conan.tools.cmake import CMake, CMakeToolchain, cmake_layout
from conan.tools.files import copy, rmdir

# What the project's own build and installation read.
SOURCES = ("CMakeLists.txt", "LICENSE", "NOTICES.txt", "README.md", "CHANGELOG.md", "CONTRIBUTING.md", "SECURITY.md",
           "cmake/*", "docs/*", "examples/*", "include/*", "selfcheck/*", "session/*", "src/*", "tools/*")


class Kiv(ConanFile):
    name = "kiv"
    version = "1.0.0"
    license = "MIT"
    author = "<owner>"
    url = "https://<repository>"
    description = "Finds out how to connect to a URL: through which proxy, or directly"
    topics = ("proxy", "pac", "wpad", "winhttp", "windows")
    package_type = "shared-library"
    settings = "os", "arch", "compiler", "build_type"

    def export_sources(self):
        project = os.path.dirname(os.path.dirname(self.recipe_folder))
        for pattern in SOURCES:
            copy(self, pattern, project, self.export_sources_folder)

    def layout(self):
        cmake_layout(self)

    def validate(self):
        if self.settings.os != "Windows" or self.settings.arch != "x86_64":
            raise ConanInvalidConfiguration("kiv is a library for 64-bit Windows")

    def generate(self):
        toolchain = CMakeToolchain(self)
        for option in ("KIV_TESTS", "KIV_TOOL", "KIV_WARNINGS_ARE_ERRORS"):
            toolchain.cache_variables[option] = False
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()
        for name in ("LICENSE", "NOTICES.txt"):
            copy(self, name, self.source_folder, os.path.join(self.package_folder, "licenses"))
        # Conan writes what finds the package itself.
        for folder in ("lib/cmake", "lib/pkgconfig", "share"):
            rmdir(self, os.path.join(self.package_folder, folder))

    def package_info(self):
        self.cpp_info.set_property("cmake_file_name", "kiv")
        for name, library in (("kiv", "kiv"), ("session", "kiv-session")):
            component = self.cpp_info.components[name]
            component.libs = [library]
            component.set_property("cmake_target_name", f"kiv::{name}")
            component.set_property("pkg_config_name", library)
