"""Servers of the engines that kplog ship sends to, for programs that time or measure it."""
import os
import pwd
import socket
import subprocess
import sys
import time

PROGRAMS = "/usr/lib/postgresql/15/bin"


class Database:
    """A server of PostgreSQL in the folder, at a socket there, as a user that it takes. Without fsync, so that the
    disk of the machine does not count."""

    def __init__(self, folder):
        self.folder = folder
        self.user = {}
        if os.geteuid() == 0:
            entry = pwd.getpwnam("postgres")
            os.chown(folder, entry.pw_uid, entry.pw_gid)
            self.user = {"user": entry.pw_uid, "group": entry.pw_gid, "extra_groups": []}
        data = os.path.join(folder, "data")
        self.run("initdb", "-D", data, "--no-sync", "-A", "trust", "-U", "postgres", "-E", "UTF8", "--locale=C")
        self.process = subprocess.Popen(
            [f"{PROGRAMS}/postgres", "-D", data, "-k", folder, "-c", "listen_addresses=", "-c", "fsync=off",
             "-c", "shared_buffers=512MB", "-c", "max_wal_size=4GB", "-c", "checkpoint_timeout=1h"],
            cwd=folder, stderr=subprocess.DEVNULL, **self.user)
        while subprocess.run([f"{PROGRAMS}/pg_isready", "-q", "-h", folder], check=False).returncode != 0:
            time.sleep(0.05)

    def run(self, program, *arguments):
        subprocess.run([f"{PROGRAMS}/{program}", *arguments], cwd=self.folder, check=True,
                       stdout=subprocess.DEVNULL, **self.user)

    def sql(self, database, *statements):
        options = [word for statement in statements for word in ("-c", statement)]
        done = subprocess.run([f"{PROGRAMS}/psql", "-X", "-q", "-A", "-t", "-v", "ON_ERROR_STOP=1", "-h", self.folder,
                               "-U", "postgres", *options, database], check=True, capture_output=True, text=True)
        return done.stdout.strip()

    def address(self, database):
        return f"postgresql://postgres@{self.folder.replace('/', '%2F')}/{database}"

    def make(self, kplog, name, *options):
        """An empty database with the schema."""
        self.sql("postgres", f"drop database if exists {name}", f"create database {name}")
        subprocess.run([kplog, "ship", "-q", "--create", *options, "--to", self.address(name)], check=True)

    def end(self):
        self.process.terminate()
        self.process.wait()


def free_ports(count):
    sockets = [socket.socket() for _ in range(count)]
    for one in sockets:
        one.bind(("127.0.0.1", 0))
    ports = [one.getsockname()[1] for one in sockets]
    for one in sockets:
        one.close()
    return ports


class Cluster:
    """Three servers of NATS on loopback; each keeps its streams in a folder of its own there: 0, 1, 2."""

    def __init__(self, folder):
        ports = free_ports(6)
        routes = ", ".join(f'"nats://127.0.0.1:{port}"' for port in ports[3:])
        self.processes = []
        for i in range(3):
            settings = os.path.join(folder, f"{i}.conf")
            with open(settings, "w", encoding="ascii") as file:
                file.write(f'listen: "127.0.0.1:{ports[i]}"\nserver_name: server{i}\n'
                           f'jetstream {{ store_dir: "{folder}/{i}" }}\n'
                           f'cluster {{ name: kplog, listen: "127.0.0.1:{ports[3 + i]}", routes: [{routes}] }}\n')
            self.processes.append(subprocess.Popen(["nats-server", "-c", settings], stderr=subprocess.DEVNULL))
        self.servers = ",".join(f"nats://127.0.0.1:{port}" for port in ports[:3])
        self.address = "nats://" + ",".join(f"127.0.0.1:{port}" for port in ports[:3]) + "?tls=off"

    def make(self, kplog):
        """Streams of three replicas."""
        create = [kplog, "ship", "-q", "--create", "--replicas", "3", "--to", self.address]
        while (status := subprocess.run(create, stderr=subprocess.DEVNULL, check=False).returncode) == 3:
            time.sleep(0.1)  # the servers choose who leads
        if status != 0:
            sys.exit("the streams cannot be made")

    def end(self):
        for process in self.processes:
            process.kill()
            process.wait()
