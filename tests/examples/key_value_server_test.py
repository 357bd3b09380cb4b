#!/usr/bin/env python3
"""The example key_value_server: what its clients were told is in its logs, once, whatever happens to it.

usage: key_value_server_test.py SERVER KPLOG EVENTS SETTINGS [TEST...]

EVENTS is the path of the compiled definitions without its ending, SETTINGS the example's own.
"""
import collections
import glob
import json
import os
import random
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

SERVER, KPLOG, EVENTS, SETTINGS = (os.path.abspath(path) for path in sys.argv[1:5])
PATIENCE = 60  # seconds for what comes at once on a machine with nothing else to do


class Server:
    """The server, with its logs in the folder."""

    def __init__(self, folder, locale="en"):
        self.process = subprocess.Popen([SERVER, "0", folder, os.path.join(folder, "server.conf"), locale],
                                        stdout=subprocess.PIPE, text=True)
        self.port = int(self.process.stdout.readline().rpartition(":")[2])

    def end(self, number):
        """The exit status."""
        self.process.send_signal(number)
        return self.process.wait(PATIENCE)

    def put_away(self):
        self.process.kill()
        self.process.wait(PATIENCE)
        self.process.stdout.close()


class Client:
    """A client, which knows the event of each request that was answered."""

    LOOKUPS = {"VALUE": 0, "OK": 0, "MISSING": 1, "EXPIRED": 2}
    REASONS = {"no such command": 0, "keys have 1 to 64 visible characters": 1, "no number, or the greatest": 2,
               "no number of seconds": 2, "too long": 3}

    def __init__(self, server):
        self.socket = socket.create_connection(("127.0.0.1", server.port), PATIENCE)
        self.answers = self.socket.makefile("r", encoding="utf-8")
        self.name = "127.0.0.1:%d" % self.socket.getsockname()[1]
        self.server = server.process.pid  # names come again at another server
        self.events = [("CLIENT_CAME", {})]
        self.requests = 0

    def ask(self, request):
        """The answer; the empty text where none came."""
        try:
            self.socket.sendall(request.encode() + b"\n")
            answer = self.answers.readline()
        except OSError:
            return ""
        if not answer.endswith("\n"):
            return ""
        self.requests += 1
        self.events.append(self.event_of(request, answer[:-1]))
        return answer[:-1]

    def event_of(self, request, answer):
        command, key, value = (request.split(" ", 2) + ["", ""])[:3]
        first, _, rest = answer.partition(" ")
        if first == "ERROR":
            return "REQUEST_REFUSED", {"REASON": self.REASONS[rest]}
        if command == "STATS":
            return "STATISTICS_ASKED", {"KEYS": int(rest)}
        if command == "SET":
            return "KEY_SET", {"KEY": key, "SIZE": len(value.encode()), "OUTCOME": ["CREATED", "REPLACED"].index(first)}
        if command == "INCR":
            return "KEY_COUNTED", {"KEY": key, "NUMBER": int(rest)}
        if command == "EXPIRE":
            return "KEY_EXPIRES", {"KEY": key, "SECONDS": int(value), "LOOKUP": self.LOOKUPS[first]}
        return {"GET": "KEY_READ", "DEL": "KEY_DELETED"}[command], {"KEY": key, "LOOKUP": self.LOOKUPS[first]}

    def quit(self):
        """Waits until the server has closed the connection."""
        self.socket.sendall(b"QUIT\n")
        rest = self.answers.read()
        self.close()
        self.events.append(("CLIENT_LEFT", {"REQUESTS": self.requests, "END": 0}))
        return rest

    def close(self):
        self.answers.close()
        self.socket.close()


def request(draw, own):
    """Any request, of a client's own key or one that all have."""
    key = draw.choice([own, "shared"])
    return draw.choice(["SET %s %d" % (key, draw.randrange(100)), "SET %s Zoë" % key, "GET " + key, "DEL " + key, "INCR " + key,
                        "EXPIRE %s %d" % (key, draw.choice([0, 1000])), "EXPIRE %s soon" % key, "STATS", "FLY", "GET",
                        "GET " + "k" * 65, "SET %s %s" % (key, "v" * draw.randrange(4000))])


def all_at_once(work, clients):
    threads = [threading.Thread(target=work, args=(client,)) for client in clients]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


class KeyValueServer(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        shutil.copy(SETTINGS, self.folder)

    def start(self, locale="en"):
        server = Server(self.folder, locale)
        self.addCleanup(server.put_away)
        return server

    def path(self, name):
        return os.path.join(self.folder, name)

    # --- what the logs hold

    def stored(self, newest=1 << 30):
        """The records in the last so many bytes."""
        if not os.path.exists(self.path("server.jsonl")):
            return []
        with open(self.path("server.jsonl"), "rb") as file:
            begin = max(0, os.path.getsize(file.name) - newest)
            file.seek(begin)
            lines = file.read().splitlines(keepends=True)
        return [json.loads(line) for line in lines[begin > 0:] if line.endswith(b"\n")]

    def text_lines(self):
        lines = []
        for name in sorted(glob.glob(self.path("server.????????.????"))):
            with open(name, encoding="utf-8") as file:
                lines += file.read().splitlines()
        return lines

    def kplog(self, *arguments):
        done = subprocess.run([KPLOG, *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout

    def expect_the_same_in_all_outputs(self, records):
        """Each event once in the text logs and in the counter, too, and the numbers of each recorder without gaps."""
        self.assertEqual(sorted(self.text_lines()),
                         sorted("%(time)s %(level)d %(name)s %(message)s" % record for record in records))
        rows = json.loads(self.kplog("count", "--quiet", "--by", "event", "--format", "json", self.path("server.cnt")))["rows"]
        self.assertEqual({row["event"]: row["count"] for row in rows},
                         collections.Counter(record["event"] for record in records))
        numbers = collections.defaultdict(list)
        for record in records:
            numbers[record["recorder"]].append(record["sequence"])
        for of_one in numbers.values():
            self.assertEqual(sorted(of_one), list(range(1, len(of_one) + 1)))

    @staticmethod
    def events_of(client, records):
        events = []
        for record in records:
            attributes = record["attributes"]
            if attributes.get("CLIENT") == client.name and record["pid"] == client.server:
                events.append((record["name"], {name: attributes[name] for name in attributes if name != "CLIENT"}))
        return events

    # --- tests

    def test_thirty_two_clients_at_once(self):
        seed = random.randrange(1 << 32)
        server = self.start()

        def work(client):
            draw = random.Random("%d %s" % (seed, client.own))
            for _ in range(40):
                client.ask(request(draw, client.own))
            client.quit()

        clients = [Client(server) for _ in range(32)]
        for number, client in enumerate(clients):
            client.own = "own-%d" % number
        all_at_once(work, clients)
        self.assertEqual(server.end(signal.SIGTERM), 0)
        records = self.stored()
        for client in clients:
            self.assertEqual(len(client.events), 42)
            self.assertEqual(self.events_of(client, records), client.events, "seed %d" % seed)
        self.assertEqual([records[0]["name"], records[-1]["name"]], ["SERVER_STARTED", "SERVER_STOPPED"])
        self.assertEqual(len(records), 2 + 32 * 42)
        self.expect_the_same_in_all_outputs(records)

    def test_settings_change_under_load(self):
        server = self.start()
        clients = [Client(server) for _ in range(4)]
        is_over = threading.Event()

        # Reads, whose events are filtered, between changes, whose events are not.
        def work(client):
            client.times = []
            while not is_over.wait(0.002):
                client.ask("GET %d" % len(client.times))
                client.ask("SET %d x" % len(client.times))
                client.times.append(time.monotonic())

        load = threading.Thread(target=all_at_once, args=(work, clients))
        load.start()
        self.addCleanup(load.join)
        self.addCleanup(is_over.set)
        self.wait_until_reads_are(True)
        switched_off = self.change_settings("PropertyMask = 0xB")
        self.wait_until_reads_are(False)
        switched_on = self.change_settings("PropertyMask = 0xF")
        self.wait_until_reads_are(True)
        is_over.set()
        load.join()
        for client in clients:
            client.quit()
        self.assertEqual(server.end(signal.SIGTERM), 0)

        records = self.stored()
        self.expect_the_same_in_all_outputs(records)
        for client in clients:
            events = self.events_of(client, records)
            self.assertEqual([event for event in events if event[0] != "KEY_READ"],
                             [event for event in client.events if event[0] != "KEY_READ"])
            read = {int(attributes["KEY"]) for name, attributes in events if name == "KEY_READ"}
            self.assertEqual(len(read), sum(name == "KEY_READ" for name, attributes in events))
            rejected = [number for number in range(len(client.times)) if number not in read]
            self.assertEqual(rejected, list(range(rejected[0], rejected[-1] + 1)))
            self.assertGreater(client.times[rejected[0]], switched_off)
            self.assertLess(client.times[rejected[0]], switched_off + PATIENCE)
            self.assertLess(client.times[rejected[-1]], switched_on + PATIENCE)

    def change_settings(self, line):
        with open(self.path("server.conf"), encoding="utf-8") as file:
            changed = re.sub("^PropertyMask.*$", line, file.read(), flags=re.MULTILINE)
        with open(self.path("new.conf"), "w", encoding="utf-8") as file:
            file.write(changed)
        before = time.monotonic()
        os.rename(self.path("new.conf"), self.path("server.conf"))
        return before

    def wait_until_reads_are(self, recorded):
        """Until the last two events of each of the four clients say so; a change stands behind each read."""
        deadline = time.monotonic() + PATIENCE
        while True:
            last = collections.defaultdict(list)
            for record in self.stored(newest=1 << 15):
                if record["name"].startswith("KEY_"):
                    last[record["attributes"]["CLIENT"]].append(record["name"])
            if len(last) == 4 and all(("KEY_READ" in names[-2:]) == recorded for names in last.values()):
                return
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.01)

    def test_killed_and_recovered(self):
        """By the command, and by the next start."""
        clients = self.kill_under_load()
        self.kplog("recover", "--quiet", self.path("server"))
        self.assertEqual(glob.glob(self.path("server.ring.*")), [])
        clients += self.kill_under_load()
        self.assertEqual(self.start().end(signal.SIGINT), 0)
        self.assertEqual(glob.glob(self.path("server.ring.*")), [])

        records = self.stored()
        self.expect_the_same_in_all_outputs(records)
        for client in clients:
            events = self.events_of(client, records)
            self.assertEqual(events[:len(client.events)], client.events)
            self.assertLessEqual(len(events), len(client.events) + 1)  # one that was not answered any more

    def kill_under_load(self):
        """The clients of a server that was killed with hundreds of events on their way."""
        server = self.start()
        clients = [Client(server) for _ in range(32)]
        answered = threading.Semaphore(0)

        def work(client):
            while client.ask("INCR " + client.name):
                answered.release()
            client.close()

        load = threading.Thread(target=all_at_once, args=(work, clients))
        load.start()
        for _ in range(random.randrange(200, 1000)):
            self.assertTrue(answered.acquire(timeout=PATIENCE))
        server.end(signal.SIGKILL)
        load.join()
        return clients

    def test_three_languages(self):
        said = []
        for locale in "en", "de", "ja":
            server = self.start(locale)
            client = Client(server)
            client.ask("SET tea 42")
            client.quit()
            self.assertEqual(server.end(signal.SIGTERM), 0)
            said += [record["message"].replace(client.name, "X") for record in self.stored()
                     if record["attributes"].get("CLIENT") == client.name and record["pid"] == client.server]
        self.assertEqual(said, [
            "X came", "X created tea with 2 bytes", "X said goodbye after 1 requests",
            "X ist gekommen", "X hat tea mit 2 Bytes angelegt", "X hat sich nach 1 Anfragen verabschiedet",
            "X が接続しました", "X が tea を 2 バイトで作成しました", "X が 1 件の要求の後に別れを告げました"])
        records = self.stored()
        self.expect_the_same_in_all_outputs(records)
        rendered = self.kplog("render", "--quiet", "--definitions", EVENTS + ".ldf", "--catalog", EVENTS + "_catalog",
                              "--locale", "de", self.path("server.jsonl"))
        self.assertEqual(rendered.count("tea mit 2 Bytes angelegt"), 3)

    def test_what_is_too_long_is_refused(self):
        server = self.start()
        client = Client(server)
        self.assertEqual(client.ask("SET tea " + "x" * 5000), "ERROR too long")
        self.assertEqual(client.ask("SET tea " + "x" * 4000), "CREATED")
        self.assertEqual(client.ask("STATS"), "KEYS 1")
        client.quit()
        self.assertEqual(server.end(signal.SIGTERM), 0)
        self.assertEqual(self.events_of(client, self.stored()), client.events)

    def test_clients_are_sent_away_at_the_end(self):
        server = self.start()
        clients = [Client(server) for _ in range(3)]
        for client in clients:
            client.ask("STATS")
        self.assertEqual(server.end(signal.SIGINT), 0)
        records = self.stored()
        for client in clients:
            self.assertEqual(client.answers.read(), "")
            client.close()
            self.assertEqual(self.events_of(client, records),
                             client.events + [("CLIENT_LEFT", {"REQUESTS": 1, "END": 3})])
        self.assertEqual((records[-1]["name"], records[-1]["attributes"]), ("SERVER_STOPPED", {"SIGNAL": 2, "KEYS": 0}))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[5:])
