"""A relay before a server on 127.0.0.1 that acts as a bad link: bad_link.py SERVER-PORT MIB HOSTS-FILE COUNT-FILE.

It prints its port. It cuts each connection after 5 MiB, alternately by an orderly close and by a reset. Once it refuses
connections for two seconds, and once a connection stalls until the client closes it. After half of MIB it names another
address in the hosts file and refuses the old one. At SIGTERM it writes the numbers of relayed bytes and cuts to COUNT-FILE.
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
        time.sleep(0.05)  # a reset discards data that are still under way
        client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def serve(client, number):
    try:
        with client:
            relay(client, number)
    except OSError:
        pass


signal.signal(signal.SIGTERM, end)
listener = socket.create_server((ADDRESSES[0], 0))
port = listener.getsockname()[1]
print(port, flush=True)
moved = False
for number in itertools.count():
    if number == 5:
        listener.close()
        time.sleep(2)
        listener = socket.create_server((ADDRESSES[0], port))
    if not moved and relayed >= mib * 524288:
        moved = True
        listener.close()
        listener = socket.create_server((ADDRESSES[1], port))
        with open(hosts, "w", encoding="ascii") as file:
            file.write(f"{ADDRESSES[1]} badlink.invalid\n")
    threading.Thread(target=serve, args=(listener.accept()[0], number), daemon=True).start()
