"""Sessions over the stand-in."""

from __future__ import annotations

import asyncio
import concurrent.futures
import ctypes
import math
import os
import queue
import re
import subprocess
import sys
import threading
import unittest
from collections.abc import Callable
from pathlib import Path
from unittest import mock

import kiv
from kiv import declarations as d
from kiv.library import text_of, wide
from kiv.options import milliseconds, time_out
from kiv.session import schemes_of

from .support import BINDING, PASSWORD, PATIENCE, USER, Case, Login, build, scratch, stand_in, wait_for

PROXY = "http://10.0.0.1:3128"


class Pure(unittest.TestCase):
    def test_texts_survive_both_ways(self) -> None:
        for text in ("", "plain", "grüße", "日本", "a\U0001F600b"):
            with self.subTest(text):
                self.assertEqual(text_of(ctypes.cast(wide(text), d.TEXT)), text)
        self.assertEqual(text_of(d.TEXT()), "")
        with self.assertRaises(ValueError):
            wide("a\0b")

    def test_times_are_rounded_up_and_limited(self) -> None:
        for seconds, expected in ((0, 0), (1e-9, 1), (0.001, 1), (0.0015, 2), (3600, 3600000), (-1, d.NO_TIME_OUT),
                                  (-1e-9, 0), (1e12, d.NO_TIME_OUT), (math.inf, d.NO_TIME_OUT)):
            with self.subTest(seconds):
                self.assertEqual(milliseconds(seconds), expected)
        for given, expected in ((None, 0), (0, 1), (-5, 1), (-math.inf, 1), (2, 2000), (math.inf, d.NO_TIME_OUT)):
            with self.subTest(given):
                self.assertEqual(time_out(given), expected)

    def test_schemes_are_the_words_that_are_no_parameters(self) -> None:
        for headers, expected in (
                (['Basic realm="a"', "NTLM", ""], ["Basic", "NTLM"]), (["Negotiate, NTLM"], ["Negotiate", "NTLM"]),
                (['Basic realm="x, Fake y", Digest qop="auth", nonce=1'], ["Basic", "Digest"]),
                (["NTLM TlRM=="], ["NTLM"])):
            with self.subTest(headers):
                self.assertEqual(schemes_of(headers), expected)

    def test_what_a_later_library_adds_is_a_number(self) -> None:
        self.assertEqual((kiv.Reason(0x1FF), kiv.Reason(0x1FF).name), (0x1FF, "UNKNOWN_0x1ff"))
        self.assertEqual(kiv.StatusError(0x80070005, "").system_error, 5)
        self.assertIsNone(kiv.StatusError(0x80090001, "").system_error)

    def test_passwords_stand_in_no_representation(self) -> None:
        self.assertNotIn(PASSWORD, repr(kiv.Options(preferred=kiv.Proxy(PROXY, USER, PASSWORD))))

    def test_parameters_have_the_sizes_of_the_header(self) -> None:
        sizes = {"void": d.NOTHING, "uint32_t": d.NUMBER, "KivStatus": d.NUMBER, "uint64_t": d.LONG, "int": d.FLAG,
                 "constwchar_t*": d.TEXT, "constwchar_t**": d.TEXT_RESULT, "KivDoneFunction": d.HANDLE}

        def size(declaration: str) -> object:
            kind = re.sub(r"\s|\w+$", "", declaration) if " " in declaration else declaration
            return sizes.get(kind, d.RESULT if kind.endswith("**") else d.HANDLE)

        header = (BINDING.parents[1] / "include/kiv/session.h").read_text(encoding="utf-8")
        header = re.sub(r"/\*.*?\*/", "", header, flags=re.S)
        declared = re.findall(r"^KIV_API ([^;(]*?)(Kiv\w+)\(([^)]*)\);", header, re.M)
        functions = {name: (sizes.get(re.sub(r"\s", "", result), d.HANDLE),
                            [] if parameters == "void" else [size(part.strip()) for part in parameters.split(",")])
                     for result, name, parameters in declared}
        for name, expected in d.FUNCTIONS.items():
            with self.subTest(name):
                self.assertEqual(functions[name], expected)


class Loading(unittest.TestCase):
    def test_elsewhere_nothing_is_supported(self) -> None:
        with self.assertRaisesRegex(kiv.Unsupported, "needs Python for Windows x64; this is Python for linux"):
            kiv.Session("test/1")

    def test_the_library_stands_beside_the_package(self) -> None:
        with mock.patch("sysconfig.get_platform", return_value="win-amd64"), \
                self.assertRaisesRegex(kiv.LoadError, "reinstall kiv") as failed:
            kiv.Session("test/1")
        self.assertEqual(failed.exception.path, str(BINDING / "kiv/kiv-session.dll"))

    def test_a_library_that_cannot_be_used_is_one_clear_message(self) -> None:
        image = bytearray(Path(stand_in.path).read_bytes())
        image[18:20] = b"\x28\x00"  # The machine: ARM of 32 bits.
        wanted = "take kiv-session.dll 1.0.0 or a later one of the same major version"
        processor = r"built for this Python's processor"
        for path, expected in ((scratch("missing", b"")[:-1], "there is no such file: reinstall kiv"),
                               (scratch("text.so", b"text"), processor), (scratch("foreign.so", image), processor),
                               (build("old", "-DSTAND_IN_VERSION=0x00FFFF"), f"its version is 0.255.255: {wanted}"),
                               (build("new", "-DSTAND_IN_VERSION=0x020000"), f"its version is 2.0.0: {wanted}"),
                               (build("part", "-DSTAND_IN_WITHOUT_NEXT"), f"it has no function KivAuth_Next: {wanted}")):
            with self.subTest(path), self.assertRaisesRegex(kiv.LoadError, expected) as failed:
                kiv.Session("test/1", library=path)
            self.assertEqual(failed.exception.path, path)

    def test_a_relative_path_begins_at_the_current_folder(self) -> None:
        with self.assertRaises(kiv.LoadError) as failed:
            kiv.Session("test/1", library="kiv-session.dll")
        self.assertEqual(failed.exception.path, os.path.join(os.getcwd(), "kiv-session.dll"))


class Resolving(Case):
    def test_a_decision_is_made_kept_and_readable(self) -> None:
        stand_in.answer("host.test", PROXY, auth=kiv.Scheme.BASIC)
        session = self.session()
        self.assertIsNone(session.lookup("http://host.test/"))
        decision = session.resolve("http://host.test/path?query")
        kept = session.lookup("http://host.test/")
        assert kept is not None
        session.close()
        for one in (decision, kept):
            one.check()
            self.assertEqual((one.kind, one.scheme, one.host, one.port, one.url, str(one)),
                             (kiv.Kind.PROXY, "http", "10.0.0.1", 3128, PROXY, PROXY))
            self.assertEqual((one.reason, one.auth_scheme, one.age), (kiv.Reason.REACHED, kiv.Scheme.BASIC, 1.5))

    def test_direct_and_none_are_decisions(self) -> None:
        stand_in.answer("direct.test", "DIRECT")
        stand_in.answer("none.test", "NONE", reason=kiv.Reason.NOTHING_WORKS)
        session = self.session()
        direct, none = (session.resolve(f"http://{name}.test/") for name in ("direct", "none"))
        direct.check()
        self.assertEqual((str(direct), direct.url, direct.port), ("DIRECT", "", 0))
        self.assertEqual((str(none), none.explanation), ("NONE", "as scripted"))
        with self.assertRaisesRegex(kiv.NoRoute, "there is no route: as scripted") as failed:
            none.check()
        self.assertEqual(failed.exception.reason, kiv.Reason.NOTHING_WORKS)

    def test_what_fails_is_an_error_with_its_status(self) -> None:
        stand_in.answer("broken.test", status=0x80070005)
        stand_in.answer("host.test", "DIRECT")
        session = self.session()
        with self.assertRaises(kiv.StatusError) as failed:
            session.resolve("http://broken.test/")
        self.assertEqual(failed.exception.system_error, 5)
        for url, status in (("ftp://host.test/", kiv.Status.BAD_URL), ("text", kiv.Status.BAD_URL)):
            asks: list[Callable[[str], object]] = [session.resolve, session.lookup]
            for ask in asks:
                with self.subTest(url), self.assertRaises(kiv.StatusError) as failed:
                    ask(url)
                self.assertEqual(failed.exception.status, status)
        with self.assertRaises(ValueError):
            session.resolve("http://host.test/\0")
        stand_in.fail("KivSession_Start", kiv.Status.TOO_MANY)
        with self.assertRaises(kiv.StatusError) as failed:
            session.resolve("http://host.test/")
        self.assertEqual(failed.exception.status, kiv.Status.TOO_MANY)
        self.assertEqual(session._waiting, {})

    def test_a_creation_that_fails_leaves_nothing(self) -> None:
        stand_in.fail("KivSession_Create", kiv.Status.OUT_OF_MEMORY)
        for options in (kiv.Options(), kiv.Options(candidates=33), kiv.Options(timeout=0), kiv.Options(origins=-1),
                        kiv.Options(dead_time=-1), kiv.Options(schemes=kiv.Scheme(0))):
            with self.subTest(options), self.assertRaises(kiv.StatusError):
                self.session(options)
        with self.assertRaises(ValueError):
            self.session(kiv.Options(left_out="a\0"))

    def test_every_option_is_taken(self) -> None:
        session = self.session(kiv.Options(
            test=kiv.Test.CONNECT, timeout=1, discovery_timeout=2, connect_timeout=3, answer_timeout=4, kept_time=0,
            past_time=6, failure_time=7.5, dead_time=8, origins=10, candidates=3, direct=kiv.Direct.LAST_RESORT,
            logged_on_user=kiv.LoggedOnUser.PROXIES, schemes=kiv.Scheme.BASIC | kiv.Scheme.NTLM,
            log_level=kiv.LogLevel.DEBUG, left_out="socks5://*", bypass_list="*.inside.test",
            preferred=kiv.Proxy("one.test:8080", USER, "pä\U0001F600"),
            fallback=kiv.Proxy("two.test")))
        numbers = [stand_in.number(session, option) for option in range(1, 16)]
        self.assertEqual(numbers, [1, 1000, 2000, 3000, 4000, 0, 6000, 7500, 8000, 10, 3, 1, 2, 3, 4])
        self.assertEqual([stand_in.text(session, option) for option in (64, 65)], ["socks5://*", "*.inside.test"])
        self.assertEqual([stand_in.proxy(session, which) for which in (1, 2)],
                         [["one.test:8080", USER, "pä\U0001F600"], ["two.test", "", ""]])

    def test_what_python_does_not_speak_is_left_out(self) -> None:
        session = self.session()
        self.assertEqual((stand_in.number(session, d.Option.SCHEMES), stand_in.text(session, d.Option.LEFT_OUT)),
                         (kiv.Scheme.BASIC, "socks4://*;socks5://*"))

    def test_deadlines_are_met(self) -> None:
        session = self.session(kiv.Options(timeout=0.05))
        for limit in (None, 0.02, 0, -1):
            with self.subTest(limit), self.assertRaises(TimeoutError) as failed:
                session.resolve("http://never.test/", limit)
            self.assertIsInstance(failed.exception, kiv.TimedOut)

    def test_cancelling_a_future_ends_the_work(self) -> None:
        stand_in.answer("host.test", "DIRECT")
        session = self.session()
        future = session.start("http://never.test/", math.inf)
        self.assertEqual(session.counter(kiv.Counter.WAITING), 1)
        self.assertTrue(future.cancel())
        self.assertEqual(session.counter(kiv.Counter.WAITING), 0)
        with self.assertRaises(concurrent.futures.CancelledError):
            future.result()
        wait_for(lambda: not session._waiting)
        done = session.start("http://host.test/")
        self.assertEqual(done.result(PATIENCE).kind, kiv.Kind.DIRECT)
        self.assertFalse(done.cancel())

    def test_asyncio_waits_cancels_and_times_out(self) -> None:
        stand_in.answer("host.test", PROXY)
        session = self.session()

        async def body() -> None:
            decisions = await asyncio.gather(*(session.resolve_async("http://host.test/") for _ in range(10)))
            self.assertEqual({decision.url for decision in decisions}, {PROXY})
            with self.assertRaises(kiv.TimedOut):
                await session.resolve_async("http://never.test/", 0.02)
            with self.assertRaises(asyncio.TimeoutError):
                await asyncio.wait_for(session.resolve_async("http://never.test/"), 0.02)
            self.assertEqual(session.counter(kiv.Counter.WAITING), 0)

        asyncio.run(body())

    def test_closing_ends_all_that_wait(self) -> None:
        session = self.session()
        with concurrent.futures.ThreadPoolExecutor(22) as pool:
            waiting = [pool.submit(session.resolve, "http://never.test/") for _ in range(20)]
            wait_for(lambda: session.counter(kiv.Counter.WAITING) == 20)
            for closing in [pool.submit(session.close) for _ in range(2)]:
                closing.result(PATIENCE)
        self.assertEqual({type(one.exception()) for one in waiting}, {kiv.Closed})
        asks: list[Callable[[str], object]] = [session.resolve, session.lookup]
        for ask in asks:
            with self.assertRaises(kiv.Closed):
                ask("http://host.test/")
        session.forget()
        session.forget_credentials()

    def test_a_callback_of_a_future_may_close_but_not_wait(self) -> None:
        stand_in.answer("host.test", "DIRECT")
        session = self.session()
        errors: queue.SimpleQueue[object] = queue.SimpleQueue()

        def then(_: object) -> None:
            try:
                session.resolve("http://host.test/")
            except kiv.StatusError as error:
                errors.put(error.status)
            session.close()
            errors.put("closed")

        session.start("http://never.test/", 0.05).add_done_callback(then)
        self.assertEqual([errors.get(timeout=PATIENCE) for _ in range(2)], [kiv.Status.REENTRANT, "closed"])

    def test_ten_thousand_resolutions_leave_nothing_behind(self) -> None:
        stand_in.answer("host.test", PROXY)
        session = self.session()
        threads = threading.active_count()
        for _ in range(10000):
            session.resolve("http://host.test/")
        self.assertEqual((session.counter(kiv.Counter.RESOLUTIONS), threading.active_count()), (10000, threads))
        # The one that is kept: what the loop has made was released as it ran.
        wait_for(lambda: stand_in.live() == {"session": 1, "decision": 1})

    def test_two_sessions_serve_many_threads(self) -> None:
        stand_in.answer("one.test", PROXY)
        stand_in.answer("two.test", "DIRECT")
        sessions = {"one": self.session(), "two": self.session()}
        with concurrent.futures.ThreadPoolExecutor(16) as pool:
            got = pool.map(lambda name: (name, str(sessions[name].resolve(f"http://{name}.test/"))), ["one", "two"] * 200)
        self.assertEqual(set(got), {("one", PROXY), ("two", "DIRECT")})

    def test_reports_and_counters_reach_the_library(self) -> None:
        stand_in.answer("host.test", PROXY)
        session = self.session()
        decision = session.resolve("http://host.test/")
        session.report(decision, kiv.Failure.TARGET)
        self.assertEqual((stand_in.reported(session), session.lookup("http://host.test/")), (kiv.Failure.TARGET, None))
        session.resolve("http://host.test/")
        session.forget()
        self.assertIsNone(session.lookup("http://host.test/"))
        self.assertEqual(session.counter(kiv.Counter.RESOLUTIONS), 2)

    def test_want_of_memory_ends_no_session(self) -> None:
        stand_in.answer("host.test", "DIRECT")
        session = self.session()
        stand_in.fail("KivSession_Next", kiv.Status.OUT_OF_MEMORY)
        stand_in.change(session)
        wait_for(lambda: not stand_in.will_fail())
        self.assertEqual(str(session.resolve("http://host.test/", PATIENCE)), "DIRECT")

    def test_changes_and_log_lines_arrive(self) -> None:
        told: queue.SimpleQueue[object] = queue.SimpleQueue()

        def fail() -> None:
            told.put("changed")
            raise RuntimeError("an application's")

        session = self.session(on_changed=fail, on_log=lambda level, line: told.put((level, line)))
        with mock.patch("threading.excepthook") as hook:
            stand_in.change(session)
            stand_in.log(session, 2, "grüße \U0001F600")
            got = [told.get(timeout=PATIENCE) for _ in range(2)]
        self.assertEqual(got, ["changed", (kiv.LogLevel.WARN, "grüße \U0001F600")])
        self.assertEqual(hook.call_args[0][0].exc_type, RuntimeError)

    def test_log_lines_that_nobody_has_time_for_are_lost(self) -> None:
        held, lines = threading.Event(), []

        def log(_: kiv.LogLevel, line: str) -> None:
            held.wait(PATIENCE)
            lines.append(line)

        session = self.session(on_log=log)
        for number in range(2000):
            stand_in.log(session, 1, str(number))
        stand_in.answer("host.test", "DIRECT")
        session.resolve("http://host.test/")
        held.set()
        wait_for(lambda: session._told.qsize() == 0)
        self.assertLess(len(lines), 1030)


class Challenges(Case):
    def test_a_new_session_is_ready_to_be_asked(self) -> None:
        stand_in.answer("host.test", PROXY, password=PASSWORD)
        with mock.patch.object(kiv.Session, "_read"):
            session = self.session()
            session.start("http://host.test/")
        self.assertEqual(session.counter(kiv.Counter.CHALLENGES), 1)

    def test_a_challenge_is_answered(self) -> None:
        stand_in.answer("host.test", PROXY, auth=kiv.Scheme.BASIC, password=PASSWORD)
        seen: list[tuple[str, kiv.Scheme, str, int, bool, str]] = []
        login = Login("wrong", PASSWORD)

        def ask(challenge: kiv.Challenge) -> None:
            seen.append((challenge.proxy, challenge.scheme, challenge.realm, challenge.attempt, challenge.withdrawn,
                         repr(challenge)))
            login(challenge)

        decision = self.session(on_challenge=ask).resolve("http://host.test/")
        self.assertEqual((str(decision), decision.auth_scheme), (PROXY, kiv.Scheme.BASIC))
        self.assertEqual(seen, [(PROXY, kiv.Scheme.BASIC, "gäte 日本 \U0001F600", attempt, False,
                                 f"<kiv.Challenge of {PROXY}, attempt {attempt}>") for attempt in (1, 2)])

    def test_what_is_not_answered_is_declined(self) -> None:
        def fail(_: kiv.Challenge) -> None:
            raise RuntimeError("an application's")

        for ask in (None, lambda _: None, fail, lambda challenge: challenge.decline()):
            with self.subTest(ask), mock.patch("threading.excepthook"):
                stand_in.answer("host.test", PROXY, password=PASSWORD)
                session = self.session(on_challenge=ask)
                for _ in range(2):
                    self.assertEqual(session.resolve("http://host.test/", PATIENCE).reason, kiv.Reason.CREDENTIALS_WANTED)
                    session.forget()
                self.assertEqual(session.counter(kiv.Counter.CHALLENGES), 1)

    def test_a_challenge_can_be_kept_and_answered_once(self) -> None:
        stand_in.answer("host.test", PROXY, password=PASSWORD)
        kept: queue.SimpleQueue[kiv.Challenge] = queue.SimpleQueue()
        session = self.session(on_challenge=kept.put)
        future = session.start("http://host.test/")
        challenge = kept.get(timeout=PATIENCE)
        with self.assertRaises(kiv.StatusError):
            challenge.answer("", PASSWORD)
        with self.assertRaises(ValueError):
            challenge.answer(USER, "a\0")
        self.assertEqual([challenge.answer(USER, PASSWORD), challenge.answer(USER, PASSWORD), challenge.decline()],
                         [True, False, False])
        self.assertEqual(str(future.result(PATIENCE)), PROXY)

    def test_a_challenge_that_nobody_wants_answered_is_withdrawn(self) -> None:
        stand_in.answer("host.test", PROXY, password=PASSWORD)
        kept: queue.SimpleQueue[kiv.Challenge] = queue.SimpleQueue()
        withdrawn: queue.SimpleQueue[kiv.Challenge] = queue.SimpleQueue()
        session = self.session(on_challenge=kept.put, on_withdrawn=withdrawn.put)
        future = session.start("http://host.test/")
        challenge = kept.get(timeout=PATIENCE)
        stand_in.withdraw(session)
        self.assertIs(withdrawn.get(timeout=PATIENCE), challenge)
        self.assertEqual((challenge.withdrawn, challenge.answer(USER, PASSWORD)), (True, False))
        future.cancel()

    def test_passwords_for_the_library_are_overwritten(self) -> None:
        given: list[tuple[str, ctypes.Array[ctypes.c_uint16]]] = []

        def keep(text: str) -> ctypes.Array[ctypes.c_uint16]:
            given.append((text, wide(text)))
            return given[-1][1]

        # The decision may be there before this has returned.
        answered: queue.SimpleQueue[bool] = queue.SimpleQueue()

        def answer(challenge: kiv.Challenge) -> None:
            answered.put(challenge.answer(USER, PASSWORD))

        stand_in.answer("host.test", PROXY, password=PASSWORD)
        with mock.patch("kiv.session.wide", keep), mock.patch("kiv.options.wide", keep):
            session = self.session(kiv.Options(preferred=kiv.Proxy(PROXY, USER, PASSWORD)), on_challenge=answer)
            session.resolve("http://host.test/")
            self.assertTrue(answered.get(timeout=PATIENCE))
        self.assertEqual([any(array) for text, array in given if text == PASSWORD], [False, False])

    def test_an_open_challenge_does_not_outlive_its_session(self) -> None:
        stand_in.answer("host.test", PROXY, password=PASSWORD)
        kept: queue.SimpleQueue[kiv.Challenge] = queue.SimpleQueue()
        session = self.session(on_challenge=kept.put)
        future = session.start("http://host.test/")
        challenge = kept.get(timeout=PATIENCE)
        session.close()
        self.assertIsInstance(future.exception(PATIENCE), kiv.Closed)
        self.assertFalse(challenge.answer(USER, PASSWORD))

    def test_forgotten_credentials_are_asked_for_again(self) -> None:
        stand_in.answer("host.test", PROXY, password=PASSWORD)
        login = Login(PASSWORD, PASSWORD)
        session = self.session(on_challenge=login)
        for _ in range(2):
            self.assertEqual(str(session.resolve("http://host.test/")), PROXY)
            session.forget_credentials()
        self.assertEqual(login.asked, [(PROXY, 1)] * 2)


class Authentication(Case):
    BASIC = "Basic YWxpY2U6b3BlbnNlc2FtZQ=="

    def test_proven_credentials_are_sent_before_any_407(self) -> None:
        stand_in.answer("host.test", PROXY, auth=kiv.Scheme.BASIC, password=PASSWORD)
        session = self.session(on_challenge=Login(PASSWORD))
        self.assertEqual(session.authenticate(session.resolve("http://host.test/")).next(), self.BASIC)

    def test_credentials_are_waited_for(self) -> None:
        stand_in.answer("host.test", PROXY)
        kept: queue.SimpleQueue[kiv.Challenge] = queue.SimpleQueue()
        session = self.session(on_challenge=kept.put)
        auth = session.authenticate(session.resolve("http://host.test/"))
        self.assertIsNone(auth.next())
        with concurrent.futures.ThreadPoolExecutor(1) as pool:
            waiting = pool.submit(auth.next, ['Basic realm="a"'])
            challenge = kept.get(timeout=PATIENCE)
            challenge.answer(USER, PASSWORD)
            self.assertEqual(waiting.result(PATIENCE), self.BASIC)
        with self.assertRaises(kiv.CredentialsRefused) as refused:
            auth.next(['Basic realm="a"'])
        self.assertEqual((refused.exception.proxy, refused.exception.schemes), (PROXY, ("Basic",)))

    def test_what_cannot_be_answered_names_proxy_and_schemes(self) -> None:
        stand_in.answer("host.test", PROXY)
        session = self.session()
        decision = session.resolve("http://host.test/")
        for offered, kind, text in (
                (["NTLM", "Negotiate"], kiv.AuthUnsupported,
                 f"proxy authentication unsupported: {PROXY} wants NTLM, Negotiate"),
                (["NTLM", "Basic"], kiv.CredentialsWanted, f"no proxy credentials: {PROXY} wants NTLM, Basic")):
            with self.subTest(offered), self.assertRaises(kiv.AuthError) as failed:
                session.authenticate(decision).next(offered)
            self.assertEqual((type(failed.exception), str(failed.exception)), (kind, text))

    def test_nobody_waits_longer_than_wanted(self) -> None:
        stand_in.answer("host.test", PROXY)
        kept: queue.SimpleQueue[kiv.Challenge] = queue.SimpleQueue()
        session = self.session(on_challenge=kept.put)
        auth = session.authenticate(session.resolve("http://host.test/"))
        with self.assertRaises(kiv.TimedOut):
            auth.next(["Basic"], 0.02)
        with concurrent.futures.ThreadPoolExecutor(1) as pool:
            waiting = pool.submit(auth.next, ["Basic"])
            kept.get(timeout=PATIENCE)
            session.close()
            self.assertIsInstance(waiting.exception(PATIENCE), kiv.Closed)

    def test_a_handshake_has_several_steps(self) -> None:
        stand_in.answer("host.test", PROXY)
        stand_in.answer("direct.test", "DIRECT")
        session = self.session(kiv.Options(schemes=kiv.Scheme.NTLM))
        auth = session.authenticate(session.resolve("http://host.test/"))
        self.assertEqual([auth.next(), auth.next(["NTLM"]), auth.next(["NTLM token"])], [None, "NTLM first", "NTLM second"])
        with self.assertRaises(kiv.StatusError) as failed:
            session.authenticate(session.resolve("http://direct.test/"))
        self.assertEqual(failed.exception.status, kiv.Status.BAD_ARGUMENT)


class Ending(unittest.TestCase):
    PROGRAM = """
import sys, threading
sys.path.insert(0, {binding!r})
import kiv
from tests.support import stand_in
stand_in.answer("asks.test", "http://10.0.0.1:1", password="secret")
open = threading.Event()
ask = lambda challenge: (open.set(), threading.Event().wait())
session = kiv.Session("test/1", library=stand_in.path, on_challenge=ask)
future = session.start("http://never.test/")
future.add_done_callback(lambda ended: print(type(ended.exception()).__name__, flush=True))
threading.Thread(target=session.resolve, args=("http://never.test/",), daemon=True).start()
session.start("http://asks.test/")
open.wait()
{end}
"""

    def test_the_interpreter_ends_while_a_resolution_runs(self) -> None:
        for end, code in (("sys.exit(7)", 7), ("", 0), ("raise SystemExit", 0)):
            with self.subTest(end):
                ended = subprocess.run([sys.executable, "-B", "-c", self.PROGRAM.format(binding=str(BINDING), end=end)],
                                       capture_output=True, text=True, timeout=PATIENCE, check=False)
                self.assertEqual((ended.returncode, ended.stdout), (code, "Closed\n"), ended.stderr)


if __name__ == "__main__":
    unittest.main()
