"""A relay before a server on 127.0.0.1 that does what bad links do: bad_link.py SERVER-PORT MIB HOSTS-FILE COUNT-FILE.

It prints its port. Each connection is cut after 5 MiB, in turn in order and by a reset; once nobody listens for two
seconds, once a connection stalls until the client gives it up. After half of MIB, the hosts file names another address,
and the old one is refused. When it is stopped, it writes how many bytes it has
passed on, and the number of cuts, to COUNT-FILE.
"""
import itertools
import os
import select
import signal
import socket
import struct
import sys
import threading
import time

CUT_AFTER = 5 * 1024 * 1024
server_port, mib, hosts, count_file = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3], sys.argv[4]
ADDRESSES = ("127.0.0.1", "127.0.0.2")
relayed = cuts = 0


def listen(address, port):
    listener = socket.socket()
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind((address, port))
    listener.listen()
    return listener


def end(_signal, _frame):
    with open(count_file, "w", encoding="ascii") as count:
        count.write(f"{relayed} {cuts}\n")
    os._exit(0)


def relay(client, number):
    """Passes one connection on, until it is cut."""
    global relayed, cuts
    with socket.create_connection((ADDRESSES[0], server_port)) as server:
        left = CUT_AFTER
        while left > 0:
            readable, _, _ = select.select([client, server], [], [])
            if client in readable:
                data = client.recv(65536)
                if not data:
                    return
                server.sendall(data)
            if server in readable:
                data = server.recv(min(left, 65536))
                if not data:
                    return
                client.sendall(data)
                relayed += len(data)
                left -= len(data)
    cuts += 1
    if number == 3:
        select.select([client], [], [])  # until it is closed
    if number % 2 == 1:
        time.sleep(0.05)  # for what is under way: a reset throws it away
        client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def serve(client, number):
    try:
        with client:
            relay(client, number)
    except OSError:
        pass


signal.signal(signal.SIGTERM, end)
listener = listen(ADDRESSES[0], 0)
port = listener.getsockname()[1]
print(port, flush=True)
moved = False
for number in itertools.count():
    if number == 5:
        listener.close()
        time.sleep(2)
        listener = listen(ADDRESSES[0], port)
    if not moved and relayed >= mib * 524288:
        moved = True
        listener.close()
        listener = listen(ADDRESSES[1], port)
        with open(hosts, "w", encoding="ascii") as file:
            file.write(f"{ADDRESSES[1]} badlink.invalid\n")
    threading.Thread(target=serve, args=(listener.accept()[0], number), daemon=True).start()
