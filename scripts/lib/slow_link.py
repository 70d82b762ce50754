"""A relay that acts as a slow link to a server: slow_link.py SERVER-SOCKET RTT-MS MBIT [HOLD-MS HOLD-MIB].

SERVER-SOCKET is the path of the server's Unix socket, RTT-MS the round-trip time and MBIT the bandwidth of each direction
in Mbit/s (0: unlimited). After each HOLD-MIB downstream the link carries nothing for HOLD-MS. The relay prints its TCP
port. At SIGTERM it prints the numbers of connections, of exchanges and of bytes downstream, and ends. An exchange is what
a client sends and the server's answer, so that connections and exchanges are round trips if nothing is pipelined.

The model: the kernel accepts a connection at once, therefore a client's first bytes wait for one round trip, which is the
TCP handshake. Each direction is one queue, first in, first out, which all connections share; while it holds as much as the
link carries in one round trip, the relay reads nothing more, and connections then take turns. Each byte arrives half a
round trip after it has left the queue. No packet is lost, and a connection has no slow start.
"""
import collections
import math
import os
import select
import signal
import socket
import sys
import time

CHUNK = 4096  # bytes that one connection sends in one turn
server_path, rtt, rate = sys.argv[1], float(sys.argv[2]) / 1e3, (float(sys.argv[3]) * 1e6 / 8 or math.inf)
hold, hold_after = (float(sys.argv[4]) / 1e3, int(sys.argv[5]) << 20) if len(sys.argv) > 4 else (0.0, math.inf)
longest_queue = max(rtt, 0.01)  # seconds


class Direction:
    """One direction of the link."""

    def __init__(self):
        self.free_at = 0.0  # when all that is queued has left
        self.carried = 0

    def carry(self, now, size):
        """Queues bytes, and returns when the last of them arrives at the other end."""
        self.free_at = max(now, self.free_at) + size / rate
        self.carried += size
        if self is down and self.carried // hold_after > (self.carried - size) // hold_after:
            down.free_at += hold
            up.free_at = max(up.free_at, down.free_at)
        return self.free_at + rtt / 2


class Pipe:
    """One direction of a connection."""

    def __init__(self, source, target, direction, begins):
        self.source, self.target, self.direction = source, target, direction
        self.begins = begins  # nothing is read before
        self.other = None  # the connection's other direction
        self.queue = collections.deque()  # pairs: when it arrives, and bytes, which are empty at the end
        self.read_all = self.blocked = False
        self.asked = False  # of the direction to the server: it has carried bytes that the server has not answered

    def turn(self):
        """Returns when the next bytes may be read."""
        never = self.read_all or self.blocked
        return math.inf if never else max(self.begins, self.direction.free_at - longest_queue)

    def wakes(self, now):
        """Returns when the pipe has something to do that no socket reports."""
        arrival = self.queue[0][0] if self.queue and not self.blocked else math.inf
        turn = self.turn()
        return min(arrival, turn if turn > now else math.inf)

    def read(self, now):
        global exchanges
        try:
            data = self.source.recv(CHUNK)
        except ConnectionError:
            data = b""
        self.read_all = not data
        self.queue.append((self.direction.carry(now, len(data)), data))
        if self.direction is up:
            self.asked = bool(data)
        elif self.other.asked:
            self.other.asked = False
            exchanges += 1

    def deliver(self, now):
        """Sends what has arrived. Returns whether the pipe has ended."""
        self.blocked = False
        while self.queue and self.queue[0][0] <= now:
            due, data = self.queue.popleft()
            if not data:
                self.target.shutdown(socket.SHUT_WR)
                return True
            try:
                sent = self.target.send(data)
            except BlockingIOError:
                sent = 0
            if sent < len(data):
                self.queue.appendleft((due, data[sent:]))
                self.blocked = True
                break
        return False


def end(_signal, _frame):
    print(connections, exchanges, down.carried, flush=True)
    os._exit(0)


def accept(now):
    global connections
    client, _ = listener.accept()
    client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    server = socket.socket(socket.AF_UNIX)
    server.connect(server_path)
    client.setblocking(False)
    server.setblocking(False)
    pair = Pipe(client, server, up, now + rtt), Pipe(server, client, down, now)
    pair[0].other, pair[1].other = reversed(pair)
    pipes.extend(pair)
    connections += 1


def remove(*ended):
    for pipe in ended:
        if pipe in pipes:
            pipes.remove(pipe)
        if pipe.other not in pipes:
            pipe.source.close()
            pipe.target.close()


up, down = Direction(), Direction()
pipes = []  # those that have waited longest for their turn come first
connections = exchanges = 0
signal.signal(signal.SIGTERM, end)
listener = socket.create_server(("127.0.0.1", 0), backlog=1024)
print(listener.getsockname()[1], flush=True)
while True:
    now = time.monotonic()
    readers = {pipe.source: pipe for pipe in pipes if pipe.turn() <= now}
    writers = [pipe.target for pipe in pipes if pipe.blocked]
    wake = min((pipe.wakes(now) for pipe in pipes), default=math.inf)
    timeout = None if wake == math.inf else max(wake - now, 0)
    readable, writable, _ = select.select([listener, *readers], writers, [], timeout)
    now = time.monotonic()
    for pipe in [pipe for pipe in pipes if not pipe.blocked or pipe.target in writable]:
        try:
            if pipe.deliver(now):
                remove(pipe)
        except OSError:  # one side has gone
            remove(pipe, pipe.other)
    for pipe in [readers[one] for one in readable if one is not listener]:
        if pipe in pipes and pipe.turn() <= now:
            pipe.read(now)
            pipes.remove(pipe)
            pipes.append(pipe)
    if listener in readable:
        accept(now)
