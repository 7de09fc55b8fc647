"""Client of the Zel device communication protocol, on the libzel library.

    import zel

    with zel.Connection("192.168.1.20.0.1") as connection:
        print(connection.request(600, b"what"))

    with zel.scan(timeout=5) as devices:
        for device in devices:
            print(device.id, device.address, device.host_name)

The library is loaded and set up by the first call that needs it. Discovery's thread is started by the first scan, and then
runs until the process ends: it multicasts a request every ten seconds. A program is protected from peers that would end it or
hold it up for ever; init(protect=False) has everything by the letter of libzel.h. ZEL_LIBRARY names the library's file; without it
the one inside of the package is taken, which a wheel has. Else libzel.so.0 is looked for as the system does, and libzel.dll beside the
package, in ..\\bin, and on the PATH. The library's log goes to logging.getLogger("zel"), unless init() says
otherwise.

Time-outs are in seconds; a negative one raises ValueError. A failed call raises ZelError, with the library's code and text,
and the reason when the link failed; a device's own error raises ZelDeviceError. Callbacks run on the library's
threads, one at a time per connection; an exception that leaves one goes to sys.unraisablehook, but for that of a file
transfer's, which stops the transfer and is raised by FileTransfer.wait(). A connection can be closed or its receive
thread stopped from every thread, but not from a callback (RuntimeError).
"""

from typing import TYPE_CHECKING, Any

from ._connection import Connection, Event, Message, Stats, Subscription
from ._device import DeviceId, get_route, set_route
from ._errors import ErrorCode, ZelDeviceError, ZelDisconnected, ZelError, ZelTimeout, error_text
from ._files import FileProgress, FileState, FileTransfer, send_file
from ._init import init
from ._library import version
from ._log import STDOUT
from ._options import Option, get_option, set_option
from ._requests import Request
from ._scan import Device, Discovery, Scan, discovery, scan, start_discovery
from ._version import __version__

if TYPE_CHECKING:
    from . import aio

__all__ = [
    "Connection",
    "Device",
    "DeviceId",
    "Discovery",
    "ErrorCode",
    "Event",
    "FileProgress",
    "FileState",
    "FileTransfer",
    "Message",
    "Option",
    "Request",
    "STDOUT",
    "Scan",
    "Stats",
    "Subscription",
    "ZelDeviceError",
    "ZelDisconnected",
    "ZelError",
    "ZelTimeout",
    "__version__",
    "aio",
    "discovery",
    "error_text",
    "get_option",
    "get_route",
    "init",
    "scan",
    "send_file",
    "set_option",
    "set_route",
    "start_discovery",
    "version",
]


def __getattr__(name: str) -> Any:
    if name == "aio":  # with asyncio, which takes its time to be imported
        import importlib

        return importlib.import_module(".aio", __name__)
    raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
