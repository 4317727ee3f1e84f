"""What `cmake --install` makes of the build that the binary under test lies in, and the manual."""

import re
import stat

from tests.packaging.helpers import PACKAGING, Folder, need

PAGE = PACKAGING / "morvane-connector.1.in"
FILES = {
    "bin/morvane-connector",
    "share/man/man1/morvane-connector.1",
    "share/bash-completion/completions/morvane-connector",
    "share/zsh/site-functions/_morvane-connector",
    "share/fish/vendor_completions.d/morvane-connector.fish",
}


class Install(Folder):
    def setUp(self):
        super().setUp()
        cache = (self.binary.parent / "CMakeCache.txt").read_text(encoding="utf-8")
        self.cached = dict(re.findall(r"^(\w+):\w+=(.*)$", cache, flags=re.MULTILINE))
        self.prefix = self.folder / "prefix"
        done = self.run_tool(self.cached["CMAKE_COMMAND"], "--install", self.binary.parent,
                             "--prefix", self.prefix)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.notice = done.stderr

    def test_exactly_these_files_are_installed(self):
        modes = {str(path.relative_to(self.prefix)): stat.S_IMODE(path.stat().st_mode)
                 for path in self.prefix.rglob("*") if not path.is_dir()}
        self.assertEqual(modes, {name: 0o755 if name.startswith("bin/") else 0o644
                                 for name in FILES})

    def test_an_installation_without_hosts_says_so(self):
        hosts = self.cached["MORVANE_RELAY_URL"], self.cached["MORVANE_DOWNLOAD_URL"]
        unconfigured = any(host.endswith(".example") for host in hosts)
        self.assertEqual("not given both of its hosts" in self.notice, unconfigured)

    def test_the_installed_program_runs(self):
        done = self.run_tool(self.prefix / "bin" / "morvane-connector", "status")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertTrue(done.stdout.startswith("connector_health=pairing_required\n"), done.stdout)

    def test_the_page_carries_the_version_of_the_project(self):
        page = (self.prefix / "share/man/man1/morvane-connector.1").read_text(encoding="utf-8")
        version = self.cached["CMAKE_PROJECT_VERSION"]
        self.assertIn(f"This page describes version {version}.", page)


class Manual(Folder):
    def test_every_command_is_described_with_its_arguments(self):
        expected = []
        for command in self.commands():
            usage = self.run_tool(self.binary, command).stderr
            # A command without arguments has run, without a network.
            expected.append(usage.strip()[len("usage: morvane-connector "):] or command)
        described = []
        for item in re.findall(r"^\.It Ic (.*)$", PAGE.read_text(encoding="utf-8"), re.MULTILINE):
            item = re.sub(r"Op Ar (\S+)", r"[\1]", item)
            described.append(re.sub(r"(?<= )(\w+)(?= |$)", r"<\1>", item.replace(" Ar", "")))
        self.assertEqual(sorted(described), sorted(expected))

    def test_mandoc_finds_nothing_to_mend_and_would_find_a_mistake(self):
        need("mandoc")
        done = self.run_tool("mandoc", "-T", "lint", PAGE)
        self.assertEqual((done.returncode, done.stdout), (0, ""))
        mistaken = self.folder / "page.1"
        mistaken.write_text(PAGE.read_text(encoding="utf-8").replace(".El", ".Ell", 1),
                            encoding="utf-8")
        self.assertIn("ERROR", self.run_tool("mandoc", "-T", "lint", mistaken).stdout)
