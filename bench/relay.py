#!/usr/bin/env python3
"""A TCP relay on loopback that makes a near web server a far one, or one that goes away.

usage: relay.py PORT TARGET_PORT [--round-trip MILLISECONDS] [--rate BYTES] [--outage refused|503|mute]

Bytes take half the round trip each way, a connection one more round trip before its first byte. With --rate all answers share that many bytes
a second. With --outage the
server goes away at the first request for an archive ("GET /patches/"). At SIGTERM it prints how many connections and
requests there were, as JSON.
"""
import argparse
import asyncio
import json
import os
import signal

UNAVAILABLE = b'HTTP/1.1 503 Service Unavailable\r\nContent-Length: 0\r\n\r\n'


class Relay:
    def __init__(self, options):
        self.options = options
        self.half = options.round_trip / 2000
        self.line_free = 0.0
        self.connections = self.requests = 0
        self.gone = False
        self.server = None
        self.writers = set()

    async def take_line(self, size):
        """Waits until the line has carried that many bytes, after those of everybody before."""
        now = asyncio.get_running_loop().time()
        self.line_free = max(self.line_free, now) + size / self.options.rate
        await asyncio.sleep(self.line_free - now)

    async def pump(self, reader, writer, first_delay, look=None):
        """Passes bytes on, each piece half a round trip after it came."""
        queue = asyncio.Queue()
        loop = asyncio.get_running_loop()

        async def send():
            while (item := await queue.get()) is not None:
                due, piece = item
                await asyncio.sleep(max(0, due - loop.time()))
                writer.write(piece)
                await writer.drain()
            writer.close()

        sender = asyncio.create_task(send())
        try:
            while piece := await reader.read(1 << 16):
                if look and not look(piece):
                    continue
                if not look and self.options.rate:
                    await self.take_line(len(piece))
                queue.put_nowait((loop.time() + self.half + first_delay, piece))
                first_delay = 0
        except OSError:
            pass
        queue.put_nowait(None)
        try:
            await sender
        except OSError:
            pass

    async def connected(self, reader, writer):
        self.connections += 1
        self.writers.add(writer)
        try:
            far_reader, far_writer = await asyncio.open_connection('127.0.0.1', self.options.target)
            await asyncio.gather(
                self.pump(reader, far_writer, 2 * self.half, lambda piece: self.look(piece, writer)),
                self.pump(far_reader, writer, 0))
        finally:
            self.writers.discard(writer)
            writer.close()

    def look(self, piece, writer):
        """False when the piece does not reach the server."""
        self.requests += piece.count(b'GET /')
        if self.options.outage and b'GET /patches/' in piece and not self.gone:
            self.gone = True
            if self.options.outage == 'refused':
                self.server.close()
                for one in list(self.writers):
                    one.transport.abort()
        if not self.gone:
            return True
        if self.options.outage == '503':
            for _ in range(piece.count(b'GET /')):
                writer.write(UNAVAILABLE)
        return False

    async def run(self):
        self.server = await asyncio.start_server(self.connected, '127.0.0.1', self.options.port)
        end = asyncio.Event()
        asyncio.get_running_loop().add_signal_handler(signal.SIGTERM, end.set)
        await end.wait()
        print(json.dumps({'connections': self.connections, 'requests': self.requests}), flush=True)
        os._exit(0)  # what is connected has nobody to wait for


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('port', type=int)
    parser.add_argument('target', type=int)
    parser.add_argument('--round-trip', type=float, default=0)
    parser.add_argument('--rate', type=float, default=0)
    parser.add_argument('--outage', choices=['refused', '503', 'mute'])
    asyncio.run(Relay(parser.parse_args()).run())


if __name__ == '__main__':
    main()
