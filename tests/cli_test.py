#!/usr/bin/env python3
"""The guestprep command line as a user runs it: help and version, the line
naming a file that could not be read, every --json output (parsed here, so
it must be exactly one valid UTF-8 JSON document) and the manual page."""
import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest

CLI = os.environ["GP_CLI"]
MANPAGE = os.environ["GP_MANPAGE"]
VERSION = os.environ["GP_VERSION"]
SOURCE = os.environ["GP_SOURCE_DIR"]

# Quotes, a backslash, control characters and bytes that are not UTF-8.
HOSTILE = b'q"b\\s\x01\x1f\tn\nx\xff\xc3('


def run(*args, cwd=None):
    env = dict(os.environ, GUESTPREP_LOG=os.devnull, GUESTPREP_LANG="C")
    return subprocess.run([CLI, *args], capture_output=True, env=env, cwd=cwd)


def listed_commands():
    out = run("--help").stdout.decode()
    return re.findall(r"^  (\S+)", out.split("commands:\n", 1)[1], re.M)


class Tmp(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="gp-cli-")
        self.addCleanup(shutil.rmtree, self.tmp)

    def path(self, name):
        return os.path.join(self.tmp, name)

    def write(self, name, data):
        with open(self.path(name), "wb") as f:
            f.write(data)
        return self.path(name)


class HelpAndVersion(unittest.TestCase):
    def test_version(self):
        r = run("--version")
        self.assertEqual((0, f"guestprep {VERSION}\n"), (r.returncode, r.stdout.decode()))

    def test_help_and_command_help(self):
        self.assertEqual(run("--help").stdout, run("-h").stdout)
        self.assertEqual(run("--help").stdout, run("help").stdout)
        commands = listed_commands()
        self.assertIn("identify", commands)
        for name in commands:
            with self.subTest(name):
                a, b = run("help", name), run(name, "--help")
                self.assertEqual((0, a.stdout), (b.returncode, b.stdout))
                self.assertTrue(a.stdout.startswith(f"usage: guestprep {name} ".encode()))

    def test_usage_errors_exit_2(self):
        for args in [(), ("no-such-command",), ("help", "no-such-command"),
                     ("floppy", "new", "--json", "x.flp"), ("ini", "set", "--json", "f", "s", "k", "v")]:
            with self.subTest(args):
                r = run(*args)
                self.assertEqual((2, b""), (r.returncode, r.stdout))


class FileErrors(Tmp):
    def test_the_file_and_the_reason_on_stderr(self):
        missing = self.path("missing")
        not_image = self.write("text", b"not an image\n")
        plain = self.write("plain", b"")
        cases = [
            (("identify", missing), 2, missing, "No such file or directory"),
            (("identify", self.tmp), 2, self.tmp, "Is a directory"),
            (("identify", not_image), 2, not_image, "not an ISO 9660 or UDF image"),
            (("describe", missing), 2, missing, "No such file or directory"),
            (("describe", self.tmp), 2, self.tmp, "Is a directory"),
            (("describe", not_image), 2, not_image, "not an ISO 9660 or UDF image"),
            (("check", missing), 2, missing, "No such file or directory"),
            (("floppy", "ls", missing), 1, missing, "No such file or directory"),
            (("floppy", "ls", self.tmp), 1, self.tmp, "Is a directory"),
            (("ini", "get", missing, "s", "k"), 1, missing, "No such file or directory"),
            (("tools-status", "--host", missing, "--guest", missing), 1, missing,
             "No such file or directory"),
            (("answer-file", "--os", "fedora", "--out", plain + "/out", "--user", "u",
              "--full-name", "U", "--password", "p", "--root-password", "r"),
             1, plain + "/out", "Not a directory"),
            (("prepare", "windows", missing, "--out", self.tmp, "--user", "u", "--password", "p"),
             2, missing, "No such file or directory"),
        ]
        for args, status, path, reason in cases:
            with self.subTest(args[0], path=path):
                r = run(*args)
                self.assertEqual(status, r.returncode)
                self.assertIn(f"guestprep: {path}: {reason}\n", r.stderr.decode())
                if args[0] == "identify":  # the record stays on stdout
                    self.assertIn(b"result:        2 (GUESS_OPEN_FAILED)", r.stdout)


class JsonOutput(Tmp):
    def json_of(self, *args, status=0):
        r = run(*args)
        self.assertEqual(status, r.returncode, r.stderr)
        # Strict decoding: one document, valid UTF-8, nothing else.
        return json.loads(r.stdout.decode("utf-8", errors="strict"))

    def test_identify(self):
        iso = self.path("ubuntu.iso")
        subprocess.run(["xorriso", "-as", "mkisofs", "-quiet", "-J", "-R", "-o", iso,
                        os.path.join(SOURCE, "examples/media/ubuntu-desktop")],
                       check=True, capture_output=True)
        hostile = os.fsencode(self.tmp) + b"/" + HOSTILE
        docs = self.json_of("identify", "--json", iso, hostile, status=2)
        self.assertEqual([0, 2], [d["result"] for d in docs])
        self.assertEqual(("ubuntu", "GUESS_FOUND"), (docs[0]["osName"], docs[0]["resultName"]))
        self.assertEqual(list(GUESS_INFO_KEYS), [k for k in docs[0] if k in GUESS_INFO_KEYS])
        self.assertIsInstance(docs[0]["editions"], list)
        self.assertTrue(docs[1]["image"].endswith('q"b\\s\x01\x1f\tn\nx\ufffd\ufffd('))

    def test_describe_carries_identify_record(self):
        iso = self.path("ubuntu.iso")
        subprocess.run(["xorriso", "-as", "mkisofs", "-quiet", "-J", "-R", "-o", iso,
                        os.path.join(SOURCE, "examples/media/ubuntu-desktop")],
                       check=True, capture_output=True)
        hostile = os.fsencode(self.tmp) + b"/" + HOSTILE
        docs = self.json_of("describe", "--json", iso)
        self.assertEqual("ubuntu", docs[0]["os"]["distro"])
        identified = self.json_of("identify", "--json", iso)
        self.assertEqual(identified[0], docs[0]["guess"])
        self.assertEqual(["image", "volume_id", "os", "editions", "language", "boot",
                          "guess", "evidence"], list(docs[0])[:8])
        self.assertEqual({"bios", "bios_config", "uefi", "el_torito"}, set(docs[0]["boot"]))
        r = run("describe", "--json", iso, hostile)
        self.assertEqual(2, r.returncode)
        self.assertEqual(1, len(json.loads(r.stdout.decode("utf-8", errors="strict"))))

    def test_check(self):
        doc = self.json_of("check", "--json", "--os", "ubuntu", "--sub-version", "4")
        self.assertEqual((None, "ubuntu", True, "linux", 32, [0, 1, 1, 1]),
                         (doc["image"], doc["osName"], doc["supported"], doc["family"],
                          doc["maxShortNameLength"], doc["familyFlags"]))
        self.assertIn({"name": "root", "isPrefix": False}, doc["reservedShortNames"])

    def test_validate_and_pretty_name_with_hostile_text(self):
        text = HOSTILE.decode("utf-8", errors="replace")
        doc = self.json_of("validate", "--json", "--family", "linux", "--kind", "name",
                           "--", HOSTILE, status=1)
        self.assertEqual(text, doc["text"])
        self.assertEqual(("AUTOINSTALL_BAD_LINUX_NAME", str), (doc["resultName"], type(doc["message"])))
        names = self.json_of("pretty-name", "--json", "Windows 7 HOMEPREMIUMN", HOSTILE)
        self.assertEqual([{"imageName": "Windows 7 HOMEPREMIUMN", "prettyName": "Windows 7 Home Premium N"},
                          {"imageName": text, "prettyName": text}], names)

    def test_ini_get(self):
        ini = self.write("a.ini", b'[s]\nk = "q\\"\x01\xff"\n')
        doc = self.json_of("ini", "get", "--json", ini, "s", "k")
        self.assertEqual({"path": ini, "section": "s", "key": "k"},
                         {k: doc[k] for k in ("path", "section", "key")})
        self.assertIn("\x01\ufffd", doc["value"])

    def test_floppy_ls(self):
        flp = self.path("a.flp")
        self.assertEqual(0, run("floppy", "new", flp).returncode)
        self.assertEqual(0, run("floppy", "add", flp, self.write("x", b"12345"), "Read Me.txt").returncode)
        doc = self.json_of("floppy", "ls", "--json", flp)
        self.assertEqual([{"name": "Read Me.txt", "isDir": False, "size": 5}], doc["entries"])
        self.assertGreater(doc["freeBytes"], 1400000)

    def test_answer_file(self):
        out = self.path("answer")
        doc = self.json_of("answer-file", "--json", "--os", "fedora", "--out", out, "--user", "u",
                           "--full-name", "U", "--password", "p", "--root-password", "r")
        self.assertTrue(os.path.isfile(doc["path"]))
        self.assertTrue(doc["path"].startswith(out + "/"))

    def test_tools_status(self):
        ex = os.path.join(SOURCE, "examples/tools")
        doc = self.json_of("tools-status", "--json", "--host", ex + "/host-manifest.txt",
                           "--avr", ex + "/avr.txt", "--guest", ex + "/guest-manifest.txt")
        self.assertEqual("monolithic", doc["components"][0]["name"])
        self.assertIsInstance(doc["status"], int)
        doc = self.json_of("tools-status", "--json", "--host", self.path("none"),
                           "--guest", self.path("none"), status=1)
        self.assertEqual("TOOLS_STATUS_UNKNOWN", doc["statusName"])


class PrepareWindowsFloppy(Tmp):
    def setUp(self):
        super().setUp()
        self.iso = self.path("xp.iso")
        subprocess.run(["xorriso", "-as", "mkisofs", "-quiet", "-J", "-R", "-V", "WXPFPP_EN",
                        "-o", self.iso, os.path.join(SOURCE, "examples/media/windows-xp")],
                       check=True, capture_output=True)
        os.makedirs(self.path("support"))
        os.makedirs(self.path("drivers"))
        for name in ("support/storePwd.exe", "support/unattend.cmd",
                     "support/ZentavToolsUpgrader.exe", "drivers/ztscsi.sys"):
            self.write(name, b"demo " + name.encode())
        self.write("drivers/txtsetup.oem", b'[scsi]\nZTSCSI = "Zentav SCSI"\n')

    def prepare(self, *more):
        env = dict(os.environ, GUESTPREP_LOG=os.devnull, GUESTPREP_LANG="C",
                   GUESTPREP_TEMPLATEDIR=os.path.join(SOURCE, "data/templates"))
        return subprocess.run([CLI, "prepare", "windows", self.iso, "--out", self.path("out"),
                               "--user", "jdoe", "--password", "s3cret!", *more],
                              capture_output=True, env=env)

    def test_answer_files_go_onto_the_floppy(self):
        r = self.prepare("--json", "--support-dir", self.path("support"),
                         "--driver-dir", self.path("drivers"))
        self.assertEqual(0, r.returncode, r.stderr)
        flp = self.path("out/autoinst.flp")
        self.assertEqual([flp], json.loads(r.stdout)["files"])
        self.assertEqual(["autoinst.flp"], os.listdir(self.path("out")))
        mdir = subprocess.run(["mdir", "-b", "-i", flp, "::/"], capture_output=True, check=True,
                              env=dict(os.environ, MTOOLS_SKIP_CHECK="1"))
        self.assertEqual({"txtsetup.oem", "ztscsi.sys", "winnt.sif", "autoun~0.xml",
                          "storepwd.ini", "storepwd.exe", "upgrader.exe", "unattend.cmd"},
                         {n[3:].lower() for n in mdir.stdout.decode().split()})
        self.assertEqual(["txtsetup.oem", "ztscsi.sys"], sorted(os.listdir(self.path("drivers"))))

    def test_floppy_options_need_the_support_files(self):
        self.assertEqual(2, self.prepare("--tools-iso", self.iso).returncode)

    def test_unfinished_floppy_is_exit_1(self):
        os.remove(self.path("support/unattend.cmd"))
        r = self.prepare("--support-dir", self.path("support"))
        self.assertEqual(1, r.returncode)
        self.assertIn(b"the boot floppy was not made", r.stderr)
        self.assertEqual(["autoinst.flp"], os.listdir(self.path("out")))


GUESS_INFO_KEYS = ("osName", "osName64", "subVersion", "noIsolinux", "versionString",
                   "language", "editions")


class Remaster(Tmp):
    """guestprep remaster on a Debian-style isolinux disc built here."""

    def disc(self, tree):
        root = self.path("tree")
        for name, data in tree.items():
            os.makedirs(os.path.dirname(os.path.join(root, name)), exist_ok=True)
            with open(os.path.join(root, name), "wb") as f:
                f.write(data)
        iso = self.path("disc.iso")
        subprocess.run(["xorriso", "-as", "mkisofs", "-quiet", "-R", "-J", "-V", "DEBIAN",
                        "-b", "isolinux/isolinux.bin", "-c", "isolinux/boot.cat",
                        "-no-emul-boot", "-boot-load-size", "4", "-boot-info-table",
                        "-o", iso, root], check=True, capture_output=True)
        return iso

    def debian(self):
        with open("/usr/lib/ISOLINUX/isolinux.bin", "rb") as f:
            loader = f.read()
        return self.disc({
            ".disk/info": b'Debian GNU/Linux 12.5.0 "Bookworm" - Official amd64 NETINST\n',
            "install.amd/vmlinuz": b"kernel", "install.amd/initrd.gz": b"initrd",
            "isolinux/isolinux.bin": loader,
            "isolinux/isolinux.cfg": b"include txt.cfg\ndefault vesamenu.c32\ntimeout 0\n",
            "isolinux/txt.cfg": b"label install\n kernel /install.amd/vmlinuz\n"
                                b" append initrd=/install.amd/initrd.gz --- quiet\n"})

    def test_json_progress_and_exit_statuses(self):
        iso = self.debian()
        answer = self.write("preseed.cfg", b"d-i debian-installer/locale string en_US\n")
        out = self.path("out.iso")
        r = run("remaster", iso, "--answer-file", answer, "--out", out, "--json")
        self.assertEqual(0, r.returncode, r.stderr)
        doc = json.loads(r.stdout.decode("utf-8", errors="strict"))
        self.assertEqual({"imagePath": iso, "answerFilePath": answer, "outPath": out,
                          "status": 0, "errorMessage": None}, doc)
        self.assertIn(b"guestprep: rewriting isolinux/txt.cfg\n", r.stderr)
        self.assertIn(b"guestprep: adding preseed.cfg\n", r.stderr)
        self.assertIn(f"guestprep: writing {out}\n".encode(), r.stderr)
        self.assertTrue(os.path.exists(out))

        missing = self.path("missing.cfg")
        cases = [
            ((iso, "--answer-file", missing, "--out", self.path("o1.iso")), 2, missing),
            ((iso, "--answer-file", answer, "--out", iso), 2, iso),
        ]
        for args, status, named in cases:
            with self.subTest(args=args):
                r = run("remaster", *args, "--json")
                self.assertEqual(status, r.returncode)
                doc = json.loads(r.stdout.decode("utf-8", errors="strict"))
                self.assertEqual(status, doc["status"])
                self.assertIn(named, doc["errorMessage"])
                self.assertIn(f"guestprep: {named}".encode(), r.stderr)
        self.assertFalse(os.path.exists(self.path("o1.iso")))

    def test_no_installer_boot_writes_nothing(self):
        iso = self.disc({"readme.txt": b"hello\n",
                         "isolinux/isolinux.bin": open("/usr/lib/ISOLINUX/isolinux.bin", "rb").read(),
                         "isolinux/isolinux.cfg": b"default local\nlabel local\n localboot 0\n"})
        answer = self.write("ks.cfg", b"text\n")
        r = run("remaster", iso, "--answer-file", answer, "--out", self.path("out.iso"))
        self.assertEqual(1, r.returncode)
        self.assertFalse(os.path.exists(self.path("out.iso")))
        self.assertEqual(b"", r.stdout)


class ManualPage(unittest.TestCase):
    def test_every_listed_command_has_a_section(self):
        with open(MANPAGE) as f:
            page = f.read()
        commands_part = page.split("\n.SH COMMANDS\n", 1)[1].split("\n.SH ", 1)[0]
        sections = {h.replace("\\-", "-").strip('"')
                    for h in re.findall(r"^\.SS (.+)$", commands_part, re.M)}
        missing = [c for c in listed_commands() if c not in sections]
        self.assertEqual([], missing, "commands without a section under COMMANDS in man/guestprep.1.in")
        self.assertIn("\n.SH EXIT STATUS\n", page)

    def test_renders_without_warnings(self):
        r = subprocess.run(["groff", "-man", "-ww", "-z", "-Tutf8", MANPAGE], capture_output=True)
        self.assertEqual((0, b""), (r.returncode, r.stderr))


if __name__ == "__main__":
    unittest.main(verbosity=1)
