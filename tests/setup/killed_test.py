"""Kills a setup or a removal after each of its changes and steps, and checks what the next one does."""
import shutil
import unittest

from killing import kill_at, points
from machine import OUT, files
from setups import SetupTest, payload, setup

KEPT = OUT / "kept"


@unittest.skipUnless(shutil.which("strace"), "no strace here")
class Killed(SetupTest):
    def remember(self):
        """Saves the current state for come_back."""
        m = self.machine
        shutil.rmtree(KEPT, ignore_errors=True)
        shutil.copytree(m.local, KEPT, symlinks=True)
        self.registered = bool(m.entry())
        if self.registered:
            shutil.copy(m.stand_in / "entry.reg", OUT / "kept.reg")

    def come_back(self):
        m = self.machine
        self.clean()
        shutil.rmtree(m.local)
        shutil.copytree(KEPT, m.local, symlinks=True)
        if self.registered:
            shutil.copy(OUT / "kept.reg", m.stand_in / "kept.reg")
            m.run("reg", "import", m.windows(m.stand_in / "kept.reg"))

    def end_at_each_point(self, then, program, *arguments):
        """Kills a run at each of its points, and calls the functions of `then` in turn, one after each kill."""
        self.remember()
        self.answer(0)
        found = points(self.machine, lambda: self.machine.run(program, *arguments))
        self.assertGreater(len(found), 5)
        for number, point in enumerate(found):
            step = then[number % len(then)]
            with self.subTest(call=point.call, path=point.path, number=point.number, then=step.__name__):
                self.come_back()
                self.answer(0)
                self.assertTrue(kill_at(self.machine, point, program, *arguments))
                step()

    def a_whole_package(self):
        """Returns whether one of the folders for a package has a complete one."""
        place = self.machine.package
        return any(sorted(files(place.with_name(name))) == payload() for name in ("Kestrune", "Kestrune.old"))

    def next_removal_removes(self):
        self.answer(0)
        if "UninstallString" in self.machine.entry():
            self.remove()
        self.assertEqual(self.machine.entry(), {})
        self.assertFalse(self.machine.runtime.exists())

    def next_removal_removes_all(self):
        if "UninstallString" not in self.machine.entry():
            # Killed before it had an entry; a setup that registers nothing then removes the package.
            self.answer(30)
            self.install("two", code=30)
        self.next_removal_removes()
        self.assert_nothing_installed()

    def next_set_up_completes(self):
        self.answer(0)
        self.install("two")
        self.assert_installed("2.0.0")

    def next_set_up_is_refused(self):
        """Checks that a setup which registers nothing restores the older package, if there is one."""
        programs = self.machine.local / "Programs"
        self.assertTrue(self.a_whole_package())
        times = [(path / "Kestrune.exe").stat().st_mtime for path in (programs / "Kestrune", programs / "Kestrune.old")
                 if sorted(files(path)) == payload()]
        self.answer(30)
        self.install("two", code=30)
        self.assertEqual([path.name for path in programs.iterdir()], ["Kestrune"])
        self.assertEqual(sorted(files(self.machine.package)), payload())
        self.assertEqual((self.machine.package / "Kestrune.exe").stat().st_mtime, min(times))
        self.assertNotEqual(self.machine.entry(), {})

    def test_killed_update_is_completed_undone_or_removed(self):
        self.answer(0)
        self.install()
        self.end_at_each_point(
            (self.next_set_up_completes, self.next_set_up_is_refused, self.next_removal_removes_all),
            setup("two"), "/S")

    def test_killed_first_installation_can_be_removed(self):
        self.end_at_each_point((self.next_removal_removes_all,), setup("one"), "/S")

    def test_killed_removal_is_completed_or_undone(self):
        self.answer(0)
        self.install()
        self.end_at_each_point((self.next_removal_removes, self.next_set_up_completes),
                               self.machine.package / "Uninstall.exe", "/S",
                               "_?=" + self.machine.windows(self.machine.package))
