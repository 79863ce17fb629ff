"""The shared library, its records as ctypes structures, and the error bridge.

Every call into the library goes through `call`, which makes sure the calling
thread reports into Python (Parent mode and the bridge's report function, set
once per thread) and turns a report into a raised `MoxError`.
"""

import ctypes
import os
import sys
import threading

# ------------------------------------------------------------------ constants

DEPTH_SIGN = 0x80000000
DEPTH_1U = 1
DEPTH_8U = 8
DEPTH_16U = 16
DEPTH_8S = DEPTH_SIGN | 8
DEPTH_16S = DEPTH_SIGN | 16
DEPTH_32S = DEPTH_SIGN | 32

ERROR_MODE_PARENT = 1

GET_TILE_TO_READ = 1
GET_TILE_TO_WRITE = 2
RELEASE_TILE = 4

# ------------------------------------------------------------------ records

if sys.platform == "win32" and ctypes.sizeof(ctypes.c_void_p) == 4:
    _FUNCTYPE = ctypes.WINFUNCTYPE  # the library's calls are __stdcall there
    _Library = ctypes.WinDLL
else:
    _FUNCTYPE = ctypes.CFUNCTYPE
    _Library = ctypes.CDLL

c_int = ctypes.c_int
c_uint = ctypes.c_uint
c_void_p = ctypes.c_void_p


class MoxROI(ctypes.Structure):
    _fields_ = [("coi", c_int), ("xOffset", c_int), ("yOffset", c_int),
                ("height", c_int), ("width", c_int)]


class MoxImage(ctypes.Structure):
    pass


MoxTileCallBack = _FUNCTYPE(None, ctypes.POINTER(MoxImage), c_int, c_int, c_int)


class MoxTileInfo(ctypes.Structure):
    _fields_ = [("callBack", MoxTileCallBack), ("id", c_int), ("tileData", c_void_p),
                ("width", c_int), ("height", c_int)]


MoxImage._fields_ = [
    ("headerSize", c_int), ("headerId", c_int), ("nChannels", c_int),
    ("alphaChannel", c_int), ("depth", c_uint), ("colorModel", ctypes.c_char * 4),
    ("channelSeq", ctypes.c_char * 4), ("dataOrder", c_int), ("origin", c_int),
    ("align", c_int), ("height", c_int), ("width", c_int),
    ("roi", ctypes.POINTER(MoxROI)), ("maskRoi", ctypes.POINTER(MoxImage)),
    ("imageId", c_void_p), ("tileInfo", ctypes.POINTER(MoxTileInfo)),
    ("imageSize", c_int), ("imageData", c_void_p), ("widthStep", c_int),
    ("borderMode", c_int * 4), ("borderConst", c_int * 4), ("imageDataOrigin", c_void_p),
]

MoxErrorCallBack = _FUNCTYPE(c_int, c_int, ctypes.c_char_p, ctypes.c_char_p,
                             ctypes.c_char_p, c_int)


class MoxColorTwist(ctypes.Structure):
    _fields_ = [("data", c_int * 16), ("scalingValue", c_int)]


class MoxConvKernel(ctypes.Structure):
    _fields_ = [("nCols", c_int), ("nRows", c_int), ("anchorX", c_int), ("anchorY", c_int),
                ("values", ctypes.POINTER(c_int)), ("nShiftR", c_int)]


class MoxLUT(ctypes.Structure):
    _fields_ = [("num", c_int), ("key", ctypes.POINTER(c_int)),
                ("value", ctypes.POINTER(c_int)), ("factor", ctypes.POINTER(c_int)),
                ("interpolateType", c_int)]


class MoxBitmapInfoHeader(ctypes.Structure):
    _fields_ = [("biSize", c_uint), ("biWidth", c_int), ("biHeight", c_int),
                ("biPlanes", ctypes.c_ushort), ("biBitCount", ctypes.c_ushort),
                ("biCompression", c_uint), ("biSizeImage", c_uint),
                ("biXPelsPerMeter", c_int), ("biYPelsPerMeter", c_int),
                ("biClrUsed", c_uint), ("biClrImportant", c_uint)]


# ------------------------------------------------------------------ loading

def _candidates():
    """Where the library may be, most specific first."""
    name = {"win32": "moxpx.dll", "darwin": "libmoxpx.dylib"}.get(sys.platform, "libmoxpx.so")
    env = os.environ.get("MOXPX_LIBRARY")
    if env:
        yield env
    here = os.path.dirname(os.path.abspath(__file__))
    yield os.path.join(here, name)  # copied in by the installation
    tree = os.path.dirname(os.path.dirname(here))  # the source tree, when run from it
    for build in ("build", "build-release", "build-bench"):
        yield os.path.join(tree, build, name)
    yield name  # the system's search path


def _load():
    tried = []
    for path in _candidates():
        if os.sep in path and not os.path.exists(path):
            tried.append(path)
            continue
        try:
            return _Library(path), path
        except OSError as e:
            tried.append("%s (%s)" % (path, e))
    raise ImportError("moxpx: the shared library was not found; set MOXPX_LIBRARY to its path. "
                      "Tried: " + "; ".join(tried))


lib, library_path = _load()

_P = ctypes.POINTER
_IMG = _P(MoxImage)
_MAP = _P(c_int)

# Signatures of every export; any export missing from this build of the
# library is simply absent from `functions`.
_SIGNATURES = {
    "moxGetErrStatus": (c_int, []),
    "moxSetErrStatus": (None, [c_int]),
    "moxGetErrMode": (c_int, []),
    "moxSetErrMode": (None, [c_int]),
    "moxRedirectError": (MoxErrorCallBack, [MoxErrorCallBack]),
    "moxErrorStr": (ctypes.c_char_p, [c_int]),
    "moxError": (c_int, [c_int, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_char_p, c_int]),
    "moxNulDevReport": (c_int, [c_int, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_char_p, c_int]),
    "moxStdErrReport": (c_int, [c_int, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_char_p, c_int]),
    "moxGuiBoxReport": (c_int, [c_int, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_char_p, c_int]),
    "moxUndContext": (c_void_p, []),
    "moxMalloc": (c_void_p, [c_int]),
    "moxwMalloc": (c_void_p, [c_int]),
    "moxiMalloc": (c_void_p, [c_int]),
    "moxsMalloc": (c_void_p, [c_int]),
    "moxdMalloc": (c_void_p, [c_int]),
    "moxFree": (None, [c_void_p]),
    "moxGetLibVersion": (c_void_p, []),
    # records
    "moxCreateImageHeader": (_IMG, [c_int, c_int, c_uint, ctypes.c_char_p, ctypes.c_char_p, c_int,
                                    c_int, c_int, c_int, c_int, _P(MoxROI), c_void_p,
                                    _P(MoxTileInfo)]),
    "moxAllocateImage": (None, [_IMG, c_int]),
    "moxDeallocateImage": (None, [_IMG]),
    "moxDeallocate": (None, [_IMG, c_int]),
    "moxDeallocateHeader": (None, [_IMG]),
    "moxCreateROI": (_P(MoxROI), [c_int, c_int, c_int, c_int, c_int]),
    "moxSetROI": (None, [_P(MoxROI), c_int, c_int, c_int, c_int, c_int]),
    "moxDeleteROI": (None, [_P(MoxROI)]),
    "moxCreateTileInfo": (_P(MoxTileInfo), [MoxTileCallBack, c_int, c_int, c_int]),
    "moxSetTileInfo": (None, [_P(MoxTileInfo), MoxTileCallBack, c_int, c_int, c_int]),
    "moxDeleteTileInfo": (None, [_P(MoxTileInfo)]),
    "moxSetBorderMode": (None, [_IMG, c_int, c_int, c_int]),
    "moxBadImageHeader": (c_uint, [_IMG]),
    # arithmetic and logic
    "moxAdd": (None, [_IMG, _IMG, _IMG, _MAP]),
    "moxSubtract": (None, [_IMG, _IMG, _IMG, c_int, _MAP]),
    "moxMultiply": (None, [_IMG, _IMG, _IMG, _MAP]),
    "moxAnd": (None, [_IMG, _IMG, _IMG, _MAP]),
    "moxOr": (None, [_IMG, _IMG, _IMG, _MAP]),
    "moxXor": (None, [_IMG, _IMG, _IMG, _MAP]),
    "moxAddS": (None, [_IMG, _IMG, c_int, _MAP]),
    "moxSubtractS": (None, [_IMG, _IMG, c_int, c_int, _MAP]),
    "moxMultiplyS": (None, [_IMG, _IMG, c_int, _MAP]),
    "moxAndS": (None, [_IMG, _IMG, c_int, _MAP]),
    "moxOrS": (None, [_IMG, _IMG, c_int, _MAP]),
    "moxXorS": (None, [_IMG, _IMG, c_int, _MAP]),
    "moxLShiftS": (None, [_IMG, _IMG, c_uint, _MAP]),
    "moxRShiftS": (None, [_IMG, _IMG, c_uint, _MAP]),
    "moxSquare": (None, [_IMG, _IMG, _MAP]),
    "moxAbs": (None, [_IMG, _IMG, _MAP]),
    "moxNot": (None, [_IMG, _IMG, _MAP]),
    # alpha
    "moxMultiplySScale": (None, [_IMG, _IMG, c_int, _MAP]),
    "moxMultiplyScale": (None, [_IMG, _IMG, _IMG, _MAP]),
    "moxPreMultiplyAlpha": (None, [_IMG, c_int, _MAP]),
    "moxAlphaComposite": (None, [_IMG, _IMG, _IMG, c_int, _IMG, _IMG, _IMG, c_int, c_int]),
    "moxAlphaCompositeC": (None, [_IMG, _IMG, _IMG, c_int, c_int, c_int, c_int, c_int]),
    # filters and morphology
    "moxCreateConvKernel": (_P(MoxConvKernel), [c_int, c_int, c_int, c_int, _P(c_int), c_int]),
    "moxGetConvKernel": (None, [_P(MoxConvKernel), _P(c_int), _P(c_int), _P(c_int), _P(c_int),
                                _P(_P(c_int)), _P(c_int)]),
    "moxDeleteConvKernel": (None, [_P(MoxConvKernel)]),
    "moxConvolve2D": (None, [_IMG, _IMG, _P(_P(MoxConvKernel)), c_int, c_int]),
    "moxConvolveSep2D": (None, [_IMG, _IMG, _P(MoxConvKernel), _P(MoxConvKernel)]),
    "moxBlur": (None, [_IMG, _IMG, c_int, c_int, c_int, c_int]),
    "moxMinFilter": (None, [_IMG, _IMG, c_int, c_int, c_int, c_int]),
    "moxMaxFilter": (None, [_IMG, _IMG, c_int, c_int, c_int, c_int]),
    "moxMedianFilter": (None, [_IMG, _IMG, c_int, c_int, c_int, c_int]),
    "moxErode": (None, [_IMG, _IMG, c_int]),
    "moxDilate": (None, [_IMG, _IMG, c_int]),
    "moxOpen": (None, [_IMG, _IMG, c_int]),
    "moxClose": (None, [_IMG, _IMG, c_int]),
    # geometry
    "moxZoom": (None, [_IMG, _IMG, c_int, c_int, c_int, c_int, c_int, _MAP]),
    "moxDecimate": (None, [_IMG, _IMG, c_int, c_int, c_int, c_int, c_int, _MAP]),
    "moxRotate": (None, [_IMG, _IMG, c_int, c_int, c_int, c_int, _MAP]),
    "moxMirror": (None, [_IMG, _IMG, c_int]),
    # transforms
    "moxRealFft2D": (c_int, [_IMG, _IMG, c_int, _MAP]),
    "moxCcsFft2D": (c_int, [_IMG, _IMG, c_int, _MAP]),
    "moxDCT2D": (None, [_IMG, _IMG, c_int]),
    # colour and interchange
    "moxColorToGray": (None, [_IMG, _IMG, _MAP]),
    "moxGrayToColor": (None, [_IMG, _IMG, ctypes.c_float, ctypes.c_float, ctypes.c_float, _MAP]),
    "moxRGB2HSV": (None, [_IMG, _IMG, _MAP]),
    "moxHSV2RGB": (None, [_IMG, _IMG, _MAP]),
    "moxRGB2HLS": (None, [_IMG, _IMG, _MAP]),
    "moxHLS2RGB": (None, [_IMG, _IMG, _MAP]),
    "moxCreateColorTwist": (_P(MoxColorTwist), [_P(c_int), c_int]),
    "moxSetColorTwist": (None, [_P(MoxColorTwist), _P(c_int), c_int]),
    "moxDeleteColorTwist": (None, [_P(MoxColorTwist)]),
    "moxApplyColorTwist": (None, [_IMG, _IMG, _P(MoxColorTwist), c_int, _MAP]),
    "moxReduceBits": (None, [_IMG, _IMG, c_int, c_int, c_int]),
    "moxConvert": (None, [_IMG, _IMG]),
    "moxTranslateDIB": (_IMG, [_P(MoxBitmapInfoHeader), _P(c_int)]),
    "moxConvertFromDIB": (None, [_P(MoxBitmapInfoHeader), _IMG]),
    "moxConvertToDIB": (None, [_IMG, _P(MoxBitmapInfoHeader), c_int, c_int]),
    "moxBitonalToGray": (None, [_IMG, _IMG, c_int, c_int]),
    # statistics
    "moxThreshold": (None, [_IMG, _IMG, c_int]),
    "moxComputeHisto": (None, [_IMG, _P(_P(MoxLUT))]),
    "moxContrastStretch": (None, [_IMG, _IMG, _P(_P(MoxLUT))]),
    "moxHistoEqualize": (None, [_IMG, _IMG, _P(_P(MoxLUT))]),
    "moxNorm": (ctypes.c_double, [_IMG, _IMG, c_int]),
    # data movement
    "moxCopy": (None, [_IMG, _IMG, _MAP]),
    "moxSet": (None, [_IMG, c_int, _MAP]),
    "moxExchange": (None, [_IMG, _IMG, _MAP]),
}

functions = {}
for _name, (_res, _args) in _SIGNATURES.items():
    _f = getattr(lib, _name, None)
    if _f is None:
        continue
    _f.restype = _res
    _f.argtypes = _args
    functions[_name] = _f


def has(name):
    """True when this build of the library exports `name`."""
    return name in functions


# ------------------------------------------------------------------ errors

class MoxError(Exception):
    """A failure the library reported through moxError.

    Attributes: status (the library's status code, e.g. -5 for a bad argument),
    function (the exported function that failed), message (the report's text,
    for header faults one fixed-width line per fault), file and line (where the
    library made the check).
    """

    def __init__(self, status, function, message, file, line):
        self.status = status
        self.function = function
        self.message = message
        self.file = file
        self.line = line
        super().__init__("%s [%s:%d]: %s (status %d)" % (
            function, file, line, " ".join(message.split()), status))


def _text(b):
    return b.decode("latin-1") if b is not None else ""


_tls = threading.local()


def _report(status, func, message, file, line):
    # The first report of a call is the one raised; later ones (a call may
    # report several failed checks) stay behind it.
    if getattr(_tls, "error", None) is None:
        _tls.error = MoxError(status, _text(func), _text(message), _text(file), line)
    return status


_report_fn = MoxErrorCallBack(_report)  # kept alive for the life of the module


def prepare_thread():
    """Makes the calling thread report into Python: Parent mode (report, then
    return) and the bridge's report function. Done once per thread."""
    lib.moxSetErrMode(ERROR_MODE_PARENT)
    lib.moxRedirectError(_report_fn)
    _tls.ready = True
    _tls.error = None


def call(fn, *args):
    """Calls a library function (the GIL is released during the call) and
    raises MoxError when it reported a failure."""
    t = _tls
    if not getattr(t, "ready", False):
        prepare_thread()
    result = fn(*args)
    e = t.error
    if e is not None:
        t.error = None
        raise e
    return result
