#!/usr/bin/env python3
"""Puts many clients at once on the example poll_server and checks every answer. A tenth of them
reads a few bytes at a time, a tenth stops reading for a while, and a tenth vanishes in the middle
of an answer.

usage: poll_server_load.py SERVER CLIENTS [sanitized]

Sanitizers need memory and descriptors of their own; the bounds on those are then not checked."""
import atexit, collections, contextlib, fcntl, json, os, random, re, resource, selectors, signal
import socket, subprocess, sys, tempfile, termios, time

PROGRAM, CLIENTS, SANITIZED = sys.argv[1], int(sys.argv[2]), "sanitized" in sys.argv
DEADLINE = time.monotonic() + 90
MIB = 1 << 20
MAX_UNSENT = 64 * 1024  # in the server, for each client
STALLED = MIB  # of answers to a client that stops reading: more than server and kernel hold
MOUNTS, PROCESSES = b"show mounts json\n", b"show processes json\n"
REQUESTS = [b"show interfaces\n", MOUNTS, b"show mounts text\n", b"help\n", b"show nothing\n",
            b"show interfaces json\n", MOUNTS]
expected = {}  # an answer to each command
figures = collections.Counter()


def wait_until(condition, what):
    while not condition():
        assert time.monotonic() < DEADLINE, f"waited in vain until {what}"
        time.sleep(0.02)


class Server:
    def __init__(self, path, *prefix):
        self.path = path
        self.process = subprocess.Popen([*prefix, PROGRAM, path])
        atexit.register(self.process.kill)
        self.proc = f"/proc/{self.process.pid}/"
        wait_until(self.is_ready, "the server listens")

    def is_ready(self):
        assert self.process.poll() is None, "the server does not start"
        with contextlib.suppress(FileNotFoundError, ConnectionRefusedError):
            self.connect().close()
            return True

    def connect(self):
        client = socket.socket(socket.AF_UNIX)
        client.settimeout(10)
        client.connect(self.path)
        return client

    def ask(self, lines):
        client = self.connect()
        client.sendall(lines)
        client.shutdown(socket.SHUT_WR)
        return receive(client)

    def memory(self, field):
        with open(self.proc + "status") as status:
            return 1024 * int(re.search(field + r":\s*(\d+)", status.read())[1])

    def files(self):
        return len(os.listdir(self.proc + "fd"))

    def is_idle(self):
        states = []
        for pause in 0.3, 0:
            with open(self.proc + "stat") as stat:
                fields = stat.read().split()
            states.append((fields[2], *fields[13:15]))  # processor time
            time.sleep(pause)
        return states[0] == states[1] and states[0][0] == "S"  # sleeping

    def stop(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        assert self.process.wait(20) == 0 and not os.path.exists(self.path), "no orderly end"


def take_answer(received):
    """Takes an answer off the front: (b"ok" or b"no", body), or None when it is not all there."""
    header = re.match(rb"(ok|no) (\d{10})\n", received)
    assert header or len(received) < 14, f"no header: {received[:100]}"
    end = 14 + int(header[2]) if header else 14
    if len(received) < end:
        return None
    answer = header[1], bytes(received[14:end])
    del received[:end]
    return answer


def receive(client, count=-1):
    """So many answers, or all up to the end of the session."""
    received, answers = bytearray(), []
    with contextlib.suppress(ConnectionResetError):  # the end, with commands that were not run
        while len(answers) != count and (piece := client.recv(65536)):
            received += piece
            while answer := take_answer(received):
                answers.append(answer)
    assert not received, "the session ends within an answer"
    return answers


def check_answer(command, answer):
    result, body = expected[command]
    assert answer[0] == result, answer
    if command.endswith(b"json\n"):
        assert json.loads(answer[1]).keys() == json.loads(body).keys(), answer
    else:
        assert answer[1].split(b"\n")[0] == body.split(b"\n")[0] and answer[1][-1:] == b"\n", answer
    figures["answers"] += 1
    figures["bytes"] += len(answer[1])


def check_socket_files(folder):
    """A stale file is no obstacle; what belongs to a live server or is no socket is left alone."""
    stale, other = folder + "/stale", folder + "/other"
    socket.socket(socket.AF_UNIX).bind(stale)
    open(other, "w").close()
    server = Server(stale)
    for path in stale, other:
        second = subprocess.run([PROGRAM, path], stderr=subprocess.PIPE, timeout=10)
        assert second.returncode == 1 and b"in use" in second.stderr and os.path.exists(path)
    answers = server.ask(b"help\nshow nothing\nshow mounts xml\n\n" + b"x" * 5000 +
                         b"\nshow mounts json\r\nhelp")  # the last one without a newline
    assert [result for result, _ in answers] == [b"ok", *[b"no"] * 4, b"ok", b"ok"], answers
    assert answers[0] == answers[-1] and b"show" in answers[0][1], answers
    server.stop(signal.SIGINT)


def check_shortage(folder):
    """Without free descriptors a command fails half-way, and new clients wait for others to go."""
    server = Server(folder + "/shortage", "prlimit", "--nofile=6")
    first, second = server.connect(), server.connect()
    second.sendall(b"help\n")
    first.sendall(PROCESSES)
    [(result, body)] = receive(first, 1)
    assert result == b"no" and re.fullmatch(b"[^{\n]*Too many open files[^{\n]*\n", body), body
    wait_until(server.is_idle, "the server rests")
    first.close()
    assert receive(second, 1)[0][0] == b"ok"
    server.stop()


class Client:
    """A prompt one has few commands under way at a time; the others send all of theirs at once."""

    def __init__(self, server, index):
        self.random = random.Random(index)
        self.kind = {0: "trickling", 1: "stalling", 2: "vanishing"}.get(index % 10, "prompt")
        prompt = self.kind == "prompt"
        self.at_once = self.random.randrange(1, 5) if prompt else sys.maxsize
        self.commands = [REQUESTS[(index + i) % len(REQUESTS)] for i in range(15 if prompt else 60)]
        if index % 10 == 9:  # few, since the list of processes is long work for the server
            self.commands[0] = PROCESSES
        elif self.kind == "stalling":
            self.commands = [MOUNTS] * (STALLED // len(expected[MOUNTS][1]) + 1)
        self.last = self.random.randrange(30)  # commands left to a client that vanishes
        self.waiting, self.received = collections.deque(), bytearray()
        self.socket = server.connect()

    def send(self):
        count = self.at_once - len(self.waiting)
        commands, self.commands = self.commands[:count], self.commands[count:]
        self.waiting.extend((command, time.monotonic()) for command in commands)
        self.socket.sendall(b"".join(commands))

    def receive(self):
        """Reads once; whether there is more to come."""
        slow = self.kind in ("trickling", "vanishing")
        piece = self.socket.recv(self.random.randrange(1, 100) if slow else 65536)
        assert piece, "the server has ended a session"
        self.received += piece
        while answer := take_answer(self.received):
            command, since = self.waiting.popleft()
            check_answer(command, answer)
            if self.kind == "prompt":
                figures["wait"] = max(figures["wait"], time.monotonic() - since)
        if self.kind == "vanishing" and len(self.waiting) <= 30 + self.last and self.received:
            figures["vanished"] += 1
            return False
        self.send()
        return bool(self.waiting)


def serve(clients):
    with selectors.DefaultSelector() as selector:
        for client in clients:
            selector.register(client.socket, selectors.EVENT_READ, client)
        while selector.get_map():
            assert time.monotonic() < DEADLINE, f"{len(selector.get_map())} clients wait too long"
            for key, _ in selector.select(1):
                if not key.data.receive():
                    selector.unregister(key.data.socket)
                    key.data.socket.close()


def check_load(server):
    for command in {*REQUESTS, PROCESSES}:
        [expected[command]] = server.ask(command)
    wait_until(server.is_idle, "the server rests")
    start, files = server.memory("VmRSS"), server.files()
    clients = [Client(server, index) for index in range(CLIENTS)]
    wait_until(lambda: server.files() == files + CLIENTS, "all clients are there at once")
    for client in clients:
        client.send()
    serve(client for client in clients if client.kind != "stalling")
    wait_until(server.is_idle, "the server waits for those that have stopped reading")
    serve(client for client in clients if client.kind == "stalling")
    wait_until(lambda: server.files() == files, "the clients are gone")
    peak, end = server.memory("VmHWM"), server.memory("VmRSS")
    print(f"clients       {CLIENTS} at once; {figures['vanished']} vanished within an answer\n"
          f"answers       {figures['answers']}, {figures['bytes']} bytes\n"
          f"longest wait  {figures['wait']:.3f} s, of clients that read at once\n"
          f"memory        {start / MIB:.1f} MiB at the start, {peak / MIB:.1f} at the peak, "
          f"{end / MIB:.1f} at the end")
    assert figures["vanished"] == CLIENTS // 10, "a client did not vanish within an answer"
    if not SANITIZED:
        largest = max(len(body) for _, body in expected.values())
        bound = start + MIB + CLIENTS * 8192 + CLIENTS // 5 * MAX_UNSENT + CLIENTS // 10 * largest
        assert peak < bound, f"more than {bound} bytes of memory under load"
        assert end < start + MIB, "memory stays in use"


def check_end(server):
    """A client that does not read is held back, and at the end gets what has been printed by then."""
    client = server.connect()
    lines = STALLED // len(expected[MOUNTS][1]) + 1
    client.sendall(MOUNTS * lines)
    wait_until(server.is_idle, "the server waits for its reader")
    in_kernel = int.from_bytes(fcntl.ioctl(client, termios.FIONREAD, bytes(4)), sys.byteorder)
    server.process.send_signal(signal.SIGTERM)
    wait_until(lambda: not os.path.exists(server.path), "the server takes notice")
    time.sleep(0.2)
    answers = receive(client)
    assert len(answers) < lines, "a client that does not read is not held back"
    size = sum(14 + len(body) for _, body in answers)
    assert size > in_kernel + MAX_UNSENT, "the server has not sent what it had printed"
    for answer in answers:
        check_answer(MOUNTS, answer)
    server.stop()


files = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
resource.setrlimit(resource.RLIMIT_NOFILE, (files, files))  # for the server, too
with tempfile.TemporaryDirectory() as folder:
    check_socket_files(folder)
    if not SANITIZED:
        check_shortage(folder)
    server = Server(folder + "/load")
    check_load(server)
    check_end(server)
