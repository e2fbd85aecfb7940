"""The catalogue against the sources, and the texts that it recognises."""
import dataclasses
import unittest

import catalogue as script
from triage_lib import catalogue


class AgainstTheSources(unittest.TestCase):
    def differences(self, *changes: tuple[str, str, str], known: catalogue.Catalogue | None = None) -> str:
        """What is found when a text of one source is replaced."""
        sources = script.read_sources()
        for name, old, new in changes:
            source = next(source for source in sources if source.name == f"src/{name}")
            self.assertIn(old, source.text)
            source.text = source.text.replace(old, new)
        return "\n".join(script.differences(known or catalogue.load(), sources))

    def test_every_way_to_say_something_is_seen(self) -> None:
        self.assertEqual("", self.differences())
        for name, old, new in (
                ("entry/svc_mode.cpp", '"bad action"', '"bad actions"'),                             # a failure
                ("wsc/pending.h", "log::Debug(tag", "log::Info(tag"),                                # the level of a line
                ("crashguard/crash_handler.cpp", "Directory should", "Folder should"),               # a stream
                ("root/token.cpp", '"RunningUnderAdminAccount"', '"RunningUnderAdmin"'),             # what a function throws that is given it
                ("root/service_control.cpp", "Unable to open the service '%s'!", "No service '%s'!"),
                ("avmgr/av_manager.cpp", '"provider stop"', '"provider halt"'),
                ("wsc/defender.cpp", '"change_defender_status"', '"defender"'),                      # a context
                ("wsc/isv_client.cpp", '"WSC UpdateStatus: FW"', '"WSC Update" "Status: firewall"')):
            with self.subTest(name):
                self.assertRegex(self.differences((name, old, new)), r"(?s)the catalogue lacks.*src/ has no")
        self.assertIn("kBadArguments", self.differences(("base/exceptions.h", "kBadArguments = 160", "kBadArguments = 161")))
        known = catalogue.load()
        known.entries.append(dataclasses.replace(known.entries[5], text="never said", fields=()))
        self.assertIn("src/ has no", self.differences(known=known))

    def test_comments_say_nothing(self) -> None:
        source = script.without_comments('a("x // y"); // log::Info(tag, "no");\n/* "no"\n*/ b(\'"\', "z"); // "no"\n')
        self.assertEqual('a("x // y"); \n\n b(\'"\', "z"); \n', source)

    def test_the_page(self) -> None:
        known = catalogue.load()
        page = script.PAGE.read_text(encoding="utf-8")
        for found in (page, page.replace("| done |", "| good |")):
            self.assertTrue(page == script.with_tables(found, known), "it is stale")
        self.assertRaises(LookupError, script.with_tables, page.replace("<!-- end -->", ""), known)


class Recognising(unittest.TestCase):
    def test_every_text_is_found_again(self) -> None:
        """With anything in its fields, and by its own entry alone."""
        known = catalogue.load()
        for entry in known.entries:
            self.assertNotRegex(catalogue.plain(entry.meaning), r"\(next|\(an empty|[\[\]`]")  # references lead nowhere but in the page
            for text in ("x", "", "a 'b' c"):
                said = entry.text.replace("%ls", text).replace("%s", text).replace("%d", "-12").replace("%08x", "0000000a").replace("%x", "c0000005")
                match = known.error(said) if entry.kind in ("error", "system") else known.line(entry.tag, said + ": x" * (entry.kind == "context"))
                with self.subTest(said):
                    self.assertEqual(entry.id, match.entry.id if match else None)
        for text in ("wsc pending: x", "wsc pending: 1 2", "Upgrading AV. ", "runs: bad action"):
            self.assertIsNone(known.line("wsc", text))
        self.assertIsNone(known.error("bad action "))


if __name__ == "__main__":
    unittest.main()
