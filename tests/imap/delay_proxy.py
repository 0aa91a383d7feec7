#!/usr/bin/env python3
"""A proxy on the loopback interface that makes a server look far away, or cuts its connections.

As a module:

    with delay_proxy.Proxy("127.0.0.1", server.port, delay_ms=50) as proxy:
        ... connect to proxy.port

As a program it prints {"port": N} and ends when its standard input does:

    delay_proxy.py --to 127.0.0.1:1143 --delay-ms 50

Each byte is handed on `delay_ms` after it came, in both directions, so a round trip takes twice as
long; as many bytes as ever may be under way. With `cut_after` a connection is closed both ways when
that many bytes have come from the client, or from the server when `cut_from` says so.
"""

import argparse
import asyncio
import json
import sys
import threading

CHUNK = 65536


class Proxy:
    def __init__(self, host, port, delay_ms=0.0, cut_after=None, cut_from="client"):
        self.target = (host, port)
        self.delay = delay_ms / 1000
        self.cut_after = cut_after
        self.cut_from = cut_from
        self.port = None
        self.connections = 0
        self.bytes = {"client": 0, "server": 0}  # of all connections, as they came
        self._loop = asyncio.new_event_loop()
        self._ready = threading.Event()
        self._stop = None
        self._failure = None
        self._thread = threading.Thread(target=self._run, daemon=True)

    def __enter__(self):
        self._thread.start()
        self._ready.wait()
        if self._failure is not None:
            raise self._failure
        return self

    def __exit__(self, *_):
        self._loop.call_soon_threadsafe(self._stop.set)
        self._thread.join()

    def _run(self):
        asyncio.set_event_loop(self._loop)
        try:
            self._loop.run_until_complete(self._serve())
        except OSError as failure:
            self._failure = failure
            self._ready.set()
        finally:
            self._loop.close()

    async def _serve(self):
        self._stop = asyncio.Event()
        server = await asyncio.start_server(self._connect, "127.0.0.1", 0)
        self.port = server.sockets[0].getsockname()[1]
        self._ready.set()
        await self._stop.wait()
        server.close()
        ours = asyncio.current_task()
        others = [task for task in asyncio.all_tasks() if task is not ours]
        for task in others:
            task.cancel()
        await asyncio.gather(*others, return_exceptions=True)

    async def _connect(self, reader, writer):
        self.connections += 1
        try:
            far_reader, far_writer = await asyncio.open_connection(*self.target)
        except OSError:
            writer.close()
            return
        try:
            # Either way's end is both ways' end, behind what is under way still.
            ways = [asyncio.ensure_future(self._hand_on(reader, far_writer, "client")),
                    asyncio.ensure_future(self._hand_on(far_reader, writer, "server"))]
            await asyncio.wait(ways, return_when=asyncio.FIRST_COMPLETED)
            for way in ways:
                way.cancel()
            await asyncio.gather(*ways, return_exceptions=True)
        except asyncio.CancelledError:
            pass  # the proxy ends
        finally:
            for one in (writer, far_writer):
                one.close()

    async def _hand_on(self, reader, writer, side):
        queue = asyncio.Queue()
        sender = asyncio.ensure_future(self._send(queue, writer))
        left = self.cut_after if side == self.cut_from else None
        try:
            while True:
                chunk = await reader.read(CHUNK)
                self.bytes[side] += len(chunk)
                is_cut = left is not None and len(chunk) >= left
                if is_cut:
                    chunk = chunk[:left]
                elif left is not None:
                    left -= len(chunk)
                queue.put_nowait((self._loop.time() + self.delay, chunk))
                if is_cut:
                    queue.put_nowait((0, b""))
                if is_cut or not chunk:
                    await sender
                    return
        except OSError:
            return
        finally:
            sender.cancel()

    async def _send(self, queue, writer):
        while True:
            due, chunk = await queue.get()
            wait = due - self._loop.time()
            if wait > 0:
                await asyncio.sleep(wait)
            if not chunk:
                return
            try:
                writer.write(chunk)
                await writer.drain()
            except OSError:
                return


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("--to", required=True, metavar="HOST:PORT")
    parser.add_argument("--delay-ms", type=float, default=0)
    parser.add_argument("--cut-after", type=int)
    parser.add_argument("--cut-from", choices=("client", "server"), default="client")
    options = parser.parse_args()
    host, port = options.to.rsplit(":", 1)
    with Proxy(host, int(port), options.delay_ms, options.cut_after, options.cut_from) as proxy:
        print(json.dumps({"port": proxy.port}), flush=True)
        sys.stdin.buffer.read()


if __name__ == "__main__":
    main()
