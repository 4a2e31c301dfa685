# SPDX-License-Identifier: Apache-2.0
"""GenTL in one file to copy: a producer, its cameras, their frames as numpy arrays in the buffers that they came in.

    with Producer("/path/to/producer.cti") as producer:
        with producer.open(producer.cameras()[0]) as camera, camera.stream() as stream:
            with stream.next() as frame:
                print(frame.id, frame.pixels.mean())

What `with` opens it closes; what fails is a GenTLError. While a call waits, other threads of Python go on.
"""
import ctypes
from ctypes import byref, c_char_p, c_int32, c_size_t, c_uint8, c_uint32, c_uint64, c_void_p, create_string_buffer, sizeof
from typing import NamedTuple

import numpy

TIMEOUT = -1011  # GC_ERR_TIMEOUT
ABORT = -1012  # GC_ERR_ABORT: the wait was ended, by some producers because the camera is lost

_INFINITE = 2**64 - 1
_EVENT_NEW_BUFFER = 1
_DEVICE_ACCESS_CONTROL = 3
_STREAM_INFO_PAYLOAD_SIZE = 7
_ACQ_QUEUE_ALL_DISCARD = 4
# BUFFER_INFO_...
_BASE, _IS_INCOMPLETE, _SIZE_FILLED, _WIDTH, _HEIGHT = 0, 7, 9, 10, 11
_XPADDING, _FRAMEID, _IMAGEOFFSET, _PIXELFORMAT = 14, 16, 18, 20

# The arguments of what is called; every result is a GC_ERROR.
_HANDLE_OUT, _SIZE, _COUNT, _CHANGED = (ctypes.POINTER(kind) for kind in (c_void_p, c_size_t, c_uint32, c_uint8))
_FUNCTIONS = {
    "GCInitLib": (),
    "GCCloseLib": (),
    "GCGetLastError": (ctypes.POINTER(c_int32), c_char_p, _SIZE),
    "GCRegisterEvent": (c_void_p, c_int32, _HANDLE_OUT),
    "GCUnregisterEvent": (c_void_p, c_int32),
    "EventGetData": (c_void_p, c_void_p, _SIZE, c_uint64),
    "TLOpen": (_HANDLE_OUT,),
    "TLClose": (c_void_p,),
    "TLUpdateInterfaceList": (c_void_p, _CHANGED, c_uint64),
    "TLGetNumInterfaces": (c_void_p, _COUNT),
    "TLGetInterfaceID": (c_void_p, c_uint32, c_char_p, _SIZE),
    "TLOpenInterface": (c_void_p, c_char_p, _HANDLE_OUT),
    "IFClose": (c_void_p,),
    "IFUpdateDeviceList": (c_void_p, _CHANGED, c_uint64),
    "IFGetNumDevices": (c_void_p, _COUNT),
    "IFGetDeviceID": (c_void_p, c_uint32, c_char_p, _SIZE),
    "IFOpenDevice": (c_void_p, c_char_p, c_int32, _HANDLE_OUT),
    "DevClose": (c_void_p,),
    "DevGetDataStreamID": (c_void_p, c_uint32, c_char_p, _SIZE),
    "DevOpenDataStream": (c_void_p, c_char_p, _HANDLE_OUT),
    "DSClose": (c_void_p,),
    "DSGetInfo": (c_void_p, c_int32, ctypes.POINTER(c_int32), c_void_p, _SIZE),
    "DSGetBufferInfo": (c_void_p, c_void_p, c_int32, ctypes.POINTER(c_int32), c_void_p, _SIZE),
    "DSAllocAndAnnounceBuffer": (c_void_p, c_size_t, c_void_p, _HANDLE_OUT),
    "DSQueueBuffer": (c_void_p, c_void_p),
    "DSRevokeBuffer": (c_void_p, c_void_p, _HANDLE_OUT, _HANDLE_OUT),
    "DSFlushQueue": (c_void_p, c_int32),
    "DSStartAcquisition": (c_void_p, c_int32, c_uint64),
    "DSStopAcquisition": (c_void_p, c_int32),
}


class GenTLError(Exception):
    """A call that failed: `code` is its GC_ERROR, the text has the producer's reason."""

    def __init__(self, code, text):
        super().__init__(text)
        self.code = code


class _NewBuffer(ctypes.Structure):
    _pack_ = 1
    _fields_ = [("buffer", c_void_p), ("user", c_void_p)]


class CameraId(NamedTuple):
    """Where a camera is."""

    interface: str
    device: str


class _Library:
    """The functions of the C interface, and what undoes what was done."""

    def __init__(self, path):
        self._library = ctypes.CDLL(path)
        for name, arguments in _FUNCTIONS.items():
            function = getattr(self._library, name)
            function.restype, function.argtypes = c_int32, arguments

    def result(self, name, *arguments):
        """Calls a function; its GC_ERROR."""
        return getattr(self._library, name)(*arguments)

    def call(self, name, *arguments):
        """Calls a function that has to succeed."""
        code = self.result(name, *arguments)
        if code != 0:
            raise self.error(name, code)

    def error(self, name, code):
        """What to raise for a call that has just failed on this thread."""
        text, size = create_string_buffer(1024), c_size_t(1024)
        self.result("GCGetLastError", byref(c_int32()), text, byref(size))
        return GenTLError(code, f"{name}: error {code} {text.value.decode(errors='replace')}")

    def handle(self, name, *arguments):
        """The handle that a function gives by its last argument."""
        handle = c_void_p()
        self.call(name, *arguments, byref(handle))
        return handle

    def text(self, name, *arguments):
        """The text of a function that tells the size first."""
        size = c_size_t()
        self.call(name, *arguments, None, byref(size))
        text = create_string_buffer(size.value)
        self.call(name, *arguments, text, byref(size))
        return text.value.decode()

    def count(self, name, module):
        count = c_uint32()
        self.call(name, module, byref(count))
        return count.value


class _Module:
    """What `with` closes: each step that was taken is undone, the last one first."""

    def __init__(self):
        self._undo = []

    def __enter__(self):
        try:
            self._open()
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        while self._undo:
            function, *arguments = self._undo.pop()
            function(*arguments)


class Producer(_Module):
    """An initialised producer with its system."""

    def __init__(self, path):
        super().__init__()
        self._path = path

    def _open(self):
        self.library = _Library(self._path)
        self.library.call("GCInitLib")
        self._undo.append((self.library.result, "GCCloseLib"))
        self._system = self.library.handle("TLOpen")
        self._undo.append((self.library.result, "TLClose", self._system))
        self._interfaces = {}

    def cameras(self, timeout_ms=1000):
        """The CameraIds of all cameras that answer in time, of each interface that can be opened."""
        self.library.call("TLUpdateInterfaceList", self._system, byref(c_uint8()), timeout_ms)
        found = []
        for index in range(self.library.count("TLGetNumInterfaces", self._system)):
            try:
                found += self._cameras_at(self.library.text("TLGetInterfaceID", self._system, index), timeout_ms)
            except GenTLError:  # its adapter is gone
                continue
        return found

    def _cameras_at(self, interface_id, timeout_ms):
        if interface_id not in self._interfaces:
            opened = self.library.handle("TLOpenInterface", self._system, interface_id.encode())
            self._undo.append((self.library.result, "IFClose", opened))
            self._interfaces[interface_id] = opened
        interface = self._interfaces[interface_id]
        self.library.call("IFUpdateDeviceList", interface, byref(c_uint8()), timeout_ms)
        return [CameraId(interface_id, self.library.text("IFGetDeviceID", interface, index))
                for index in range(self.library.count("IFGetNumDevices", interface))]

    def open(self, camera):
        """The camera of that id, to be opened for control by `with`."""
        return Camera(self.library, self._interfaces[camera.interface], camera.device)


class Camera(_Module):
    """A camera under control of this program; GC_ERR_ACCESS_DENIED (-1005) when another one has it."""

    def __init__(self, library, interface, device_id):
        super().__init__()
        self._library, self._interface, self._id = library, interface, device_id

    def _open(self):
        self._device = self._library.handle("IFOpenDevice", self._interface, self._id.encode(), _DEVICE_ACCESS_CONTROL)
        self._undo.append((self._library.result, "DevClose", self._device))

    def stream(self, buffers=4):
        """Its first stream, to be started by `with`."""
        return Stream(self._library, self._device, buffers)


class Stream(_Module):
    """A stream that acquires. A camera that sends only after AcquisitionStart has to get that from elsewhere."""

    def __init__(self, library, device, buffers):
        super().__init__()
        self._library, self._device, self._buffers = library, device, buffers

    def _open(self):
        call, undo = self._library.call, self._library.result
        stream_id = self._library.text("DevGetDataStreamID", self._device, 0)
        self._stream = stream = self._library.handle("DevOpenDataStream", self._device, stream_id.encode())
        self._undo.append((undo, "DSClose", stream))
        self._event = self._library.handle("GCRegisterEvent", stream, _EVENT_NEW_BUFFER)
        self._undo.append((undo, "GCUnregisterEvent", stream, _EVENT_NEW_BUFFER))
        # A producer that does not define the size of a frame leaves it to PayloadSize of the camera's description.
        payload, size = c_uint64(), c_size_t(sizeof(c_uint64))
        call("DSGetInfo", stream, _STREAM_INFO_PAYLOAD_SIZE, byref(c_int32()), byref(payload), byref(size))
        for _ in range(self._buffers):
            buffer = self._library.handle("DSAllocAndAnnounceBuffer", stream, payload.value, None)
            self._undo.append((undo, "DSRevokeBuffer", stream, buffer, None, None))
            call("DSQueueBuffer", stream, buffer)
        self._undo.append((undo, "DSFlushQueue", stream, _ACQ_QUEUE_ALL_DISCARD))
        call("DSStartAcquisition", stream, 0, _INFINITE)
        self._undo.append((undo, "DSStopAcquisition", stream, 0))

    def next(self, timeout_ms=5000):
        """The next frame, for `with`. Raises GenTLError with TIMEOUT or ABORT."""
        slice_ms = 200  # how soon ^C is noticed
        event = _NewBuffer()
        while True:
            size = c_size_t(sizeof(event))
            wait_ms = min(slice_ms, timeout_ms)
            code = self._library.result("EventGetData", self._event, byref(event), byref(size), wait_ms)
            timeout_ms -= wait_ms
            if code == 0:
                return Frame(self._library, self._stream, c_void_p(event.buffer))
            if code != TIMEOUT or timeout_ms <= 0:
                raise self._library.error("EventGetData", code)


class Frame(_Module):
    """A frame in the buffer that it came in. Behind its `with` the buffer waits for another one: copy what is to stay."""

    def __init__(self, library, stream, buffer):
        super().__init__()
        self._library, self._stream, self._buffer = library, stream, buffer
        self._undo.append((library.result, "DSQueueBuffer", stream, buffer))

    def _open(self):
        self.id = self._info(_FRAMEID)
        self.width, self.height = self._info(_WIDTH), self._info(_HEIGHT)
        self.pixel_format = self._info(_PIXELFORMAT)
        self.incomplete = self._info(_IS_INCOMPLETE) != 0
        offset = self._info(_IMAGEOFFSET)  # before the pixels some producers have something else
        self.address, self.size = self._info(_BASE) + offset, max(0, self._info(_SIZE_FILLED) - offset)
        self._padding = self._info(_XPADDING)

    def _info(self, command):
        """A number or an address of the buffer, 0 when it has none."""
        value, size = c_uint64(), c_size_t(sizeof(c_uint64))
        code = self._library.result("DSGetBufferInfo", self._stream, self._buffer, command, byref(c_int32()),
                                    byref(value), byref(size))
        return value.value if code == 0 else 0

    @property
    def pixels(self):
        """The picture, rows first, in place and not to be written to. Of packed formats, of pictures that are not
        whole and of rows with bytes behind them the bytes as they came."""
        if not self.address:
            return numpy.empty(0, numpy.uint8)
        data = numpy.frombuffer((c_uint8 * self.size).from_address(self.address), numpy.uint8)
        data.flags.writeable = False
        # The format's code begins with how many components a pixel has, one or more, and how many bits.
        shape = {(1, 8): ("<u1", ()), (1, 16): ("<u2", ()), (2, 24): ("<u1", (3,)), (2, 48): ("<u2", (3,))}
        kind, last = shape.get((self.pixel_format >> 24, self.pixel_format >> 16 & 0xFF), (None, None))
        if kind is None or self._padding:
            return data
        whole = (self.height, self.width, *last)
        needed = int(numpy.prod(whole)) * numpy.dtype(kind).itemsize
        return data[:needed].view(kind).reshape(whole) if needed <= self.size else data
