"""Call control in one file: connects the telephones on lines 0 and 1 with each other until it is ended, whatever
becomes of the process meanwhile.

usage: two_telephones.py PORT
"""

import asyncio
import signal
import sys

import fxsmedia
from fxsmedia import Endpoint


async def connect(client: fxsmedia.AsyncClient) -> None:
    opened = [await client.open(fxsmedia.OpenCommand(call=call)) for call in (0, 1)]
    if any(ports.rtp_port == 0 for ports in opened):
        raise OSError("no free ports")
    for here, far in (opened, opened[::-1]):
        client.send(
            fxsmedia.MediaCommand(
                call=here.call,
                send=fxsmedia.CODECS["pcma"],
                map=fxsmedia.CODECS["pcma"],
                event_pt=101,
                rtp=Endpoint("127.0.0.1", far.rtp_port),
                rtcp=Endpoint("127.0.0.1", far.rtcp_port),
            ),
            fxsmedia.TdmCommand(call=here.call, line=here.call),
        )
    await client.confirm()
    print("connected")


async def try_to_connect(client: fxsmedia.AsyncClient) -> None:
    try:
        await connect(client)
    except (fxsmedia.NotConnected, fxsmedia.Unanswered) as problem:  # an event tells what to do next
        print("no answer:", problem)


async def watch(client: fxsmedia.AsyncClient) -> None:
    async with asyncio.TaskGroup() as tasks:
        tasks.create_task(try_to_connect(client))
        async for event in client:
            match event:
                case fxsmedia.ProcessLost(refused):
                    print("lost, it has ended" if refused else "lost")
                case fxsmedia.ProcessResumed():
                    print("resumed")
                case fxsmedia.ProcessRestarted():
                    print("restarted")
                    tasks.create_task(try_to_connect(client))
                case fxsmedia.NewSsrcReport(call=call):
                    print("audio to line", call)
                case fxsmedia.LogReport(level=level, text=text):
                    print("log", level, text)


async def main() -> None:
    sys.stdout.reconfigure(line_buffering=True)
    async with fxsmedia.AsyncClient(int(sys.argv[1]), wait=None) as client:
        print("started")
        watching = asyncio.create_task(watch(client))
        for number in (signal.SIGINT, signal.SIGTERM):
            asyncio.get_running_loop().add_signal_handler(number, watching.cancel)
        try:
            await watching
        except asyncio.CancelledError:
            client.send(fxsmedia.EndCommand(call=0), fxsmedia.EndCommand(call=1))


if __name__ == "__main__":
    asyncio.run(main())
