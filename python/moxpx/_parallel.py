"""One operation over many threads, one destination tile per call.

Operations whose call takes `mapping` write a tiled destination: its tiles
come from a call-back that hands out pieces of the result array (or of a
memory-mapped raw file), and every call names one destination tile. Sources
are plain images over numpy arrays, or tiled images over raw files, whose
pages are let go after each tile so that memory stays flat in the image size.

Neighbourhood operations (filters, morphology) have no `mapping`: each call
gets its own source and destination headers over the shared pixels whose
regions are one tile. The library reads the neighbours of a region from the
image around it and only beyond the image's edges by its border rule, so the
tiles together give the whole call's result.
"""

import ctypes
import mmap
import os
import threading

import numpy as np

from . import _lib
from ._image import DEPTHS, Image, roi_record, shape_of, _step
from ._lib import MoxImage, MoxROI, MoxTileInfo, MoxTileCallBack
from ._ops import FUNCTIONS, _CONVERT, _pair, image_arguments, image_of, new_array, resolve

_PAGE = mmap.PAGESIZE


class RawFile:
    """A raw image file (rows of pixels, no header) mapped into memory.

    shape: (rows, columns) or (rows, columns, channels); mode "r" reads an
    existing file, "r+" reads and writes it, "w+" creates (or truncates) it.
    As a source or destination of `parallel` it is a tiled image: each tile is
    read from (written to) the mapping and its pages are let go afterwards.
    """

    def __init__(self, path, shape, dtype=np.uint8, mode="r"):
        self.path, self.shape, self.dtype = path, tuple(shape), np.dtype(dtype)
        size = int(np.prod(self.shape)) * self.dtype.itemsize
        flags = {"r": os.O_RDONLY, "r+": os.O_RDWR, "w+": os.O_RDWR | os.O_CREAT | os.O_TRUNC}
        fd = os.open(path, flags[mode], 0o644)
        try:
            if mode == "w+":
                os.ftruncate(fd, size)
            access = mmap.ACCESS_READ if mode == "r" else mmap.ACCESS_WRITE
            self._map = mmap.mmap(fd, size, access=access)
        finally:
            os.close(fd)
        self.writable = mode != "r"
        self.array = np.frombuffer(self._map, self.dtype).reshape(self.shape)

    def release(self, start, stop):
        """Lets the mapped pages of bytes [start, stop) go (the file keeps them)."""
        first = start // _PAGE * _PAGE
        last = min(len(self._map), -(-stop // _PAGE) * _PAGE)
        advice = getattr(mmap, "MADV_DONTNEED", None)
        if last > first and advice is not None:
            self._map.madvise(advice, first, last - first)

    def close(self):
        self.array = None
        self._map.close()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()


class TiledImage:
    """A tiled MoxImage over an array or a RawFile, for one thread.

    A tile is handed out in place when its rows are rows of the array (a tile
    as wide as the image, with the array's own row step); otherwise it is
    copied into a buffer (and, for writing, copied back on release).
    """

    def __init__(self, store, tile, written, registry, model=None, alpha=False):
        self.store = store if isinstance(store, RawFile) else None
        a = store.array if self.store is not None else store
        if a.dtype not in DEPTHS or a.dtype == np.bool_:
            raise TypeError("tiled images are uint8, int8, uint16, int16 or int32 arrays")
        self.array, self.written = a, written
        h, w, c = shape_of(a)
        self.height, self.width, self.channels = h, w, c
        self.tw, self.th = int(tile[0]), int(tile[1])
        bits = a.itemsize * 8
        self.step = _step(self.tw, bits, c)
        self.in_place = (a.flags.c_contiguous and self.step == a.strides[0] and
                         self.tw >= w)
        self.buffer = None if self.in_place else np.zeros(self.step * self.th, np.uint8)
        self.base = a.ctypes.data
        self.held = None
        self.error = None
        self.whole = (0, 0, w, h)
        self.changed = False  # an image changed in place: its tiles go back however asked
        self.info = MoxTileInfo()
        self.info.callBack = registry.callback
        self.info.width, self.info.height = self.tw, self.th
        hdr = MoxImage()
        hdr.headerSize = ctypes.sizeof(MoxImage)
        hdr.nChannels = c
        hdr.depth = DEPTHS[a.dtype]
        hdr.align = 4
        hdr.colorModel = (model or ("GRAY" if c == 1 else "RGB")).encode("ascii")
        hdr.channelSeq = b"GRAY" if c == 1 else b"RGB"
        if alpha and c in (2, 4):
            hdr.alphaChannel = c
        hdr.height, hdr.width = h, w
        hdr.tileInfo = ctypes.pointer(self.info)
        self.header = hdr
        self.pointer = ctypes.byref(hdr)
        registry.images[ctypes.addressof(hdr)] = self

    def set_region(self, roi, coi):
        self.roi = roi_record(roi, coi, self.width, self.height)
        if self.roi is not None:
            self.header.roi = ctypes.pointer(self.roi)
        # A written tile inside this rectangle is overwritten whole.
        if coi:
            self.whole = (0, 0, 0, 0)
        elif roi is not None:
            x, y, w, h = (int(v) for v in roi)
            self.whole = (x, y, x + w, y + h)

    def _rect(self, tx, ty):
        x0, y0 = tx * self.tw, ty * self.th
        return x0, y0, max(0, min(self.tw, self.width - x0)), max(0, min(self.th, self.height - y0))

    def _tile_view(self, w, h):
        c = self.channels
        rows = self.buffer[:self.step * self.th].reshape(self.th, self.step)
        v = rows[:h, :w * c * self.array.itemsize].view(self.array.dtype)
        return v.reshape(h, w) if self.array.ndim == 2 else v.reshape(h, w, c)

    def _let_go(self):
        tx, ty, mode = self.held
        self.held = None
        x0, y0, w, h = self._rect(tx, ty)
        if not self.in_place and (mode == _lib.GET_TILE_TO_WRITE or self.changed) and w and h:
            self.array[y0:y0 + h, x0:x0 + w] = self._tile_view(w, h)
        if self.store is not None and h:
            stride = self.array.strides[0]
            self.store.release(y0 * stride, (y0 + h) * stride)

    def serve(self, tx, ty, mode):
        if mode == _lib.RELEASE_TILE:
            if self.held is not None:
                self._let_go()
            self.info.tileData = None
            return
        if self.held is not None and self.held[:2] == (tx, ty):
            if mode == _lib.GET_TILE_TO_WRITE:  # asked again, now to write it
                self.held = (tx, ty, mode)
            return
        if self.held is not None:
            self._let_go()
        x0, y0, w, h = self._rect(tx, ty)
        self.held = (tx, ty, mode)
        if self.in_place:
            self.info.tileData = self.base + y0 * self.array.strides[0]
            return
        wx0, wy0, wx1, wy1 = self.whole
        overwritten = (mode == _lib.GET_TILE_TO_WRITE and wx0 <= x0 and wy0 <= y0 and
                       x0 + w <= wx1 and y0 + h <= wy1)
        if w and h and not overwritten:  # the call may write only part of the tile
            self._tile_view(w, h)[...] = self.array[y0:y0 + h, x0:x0 + w]
        self.info.tileData = self.buffer.ctypes.data


class _Registry:
    """The tiled images of one run, found by header address from the one
    call-back."""

    def __init__(self):
        self.images = {}
        self.callback = MoxTileCallBack(self._serve)

    def _serve(self, image, tx, ty, mode):
        t = self.images.get(ctypes.cast(image, ctypes.c_void_p).value)
        if t is None:
            return
        try:
            t.serve(tx, ty, mode)
        except BaseException as e:  # reported as a tile failure; raised after the call
            t.error = t.error or e
            t.info.tileData = None


def parallel(op, *args, tile=(256, 256), threads=None, out=None, roi=None, coi=None, **kw):
    """Runs a moxpx operation tile by tile on `threads` threads (default: the
    processors) and returns its result, equal to the single call's.

    op: a moxpx function whose library call takes a destination tile
    (`mapping`): the arithmetic, logic, alpha and colour operations, and
    those that change one image in place (moxpx.set, pre_multiply_alpha);
    or a neighbourhood operation: blur, min_filter, max_filter,
    median_filter, convolve2d, convolve_sep2d, erode, dilate, open, close.
    Others (the transforms, for instance) are refused with ValueError.
    args: its arguments; images are numpy arrays (read in place) or RawFiles
    (read tile by tile; a neighbourhood operation reads a RawFile's mapping
    as a plain array, so its pages are not let go tile by tile).
    tile=(width, height): the destination tile size. Operations with
    `mapping` need a multiple of 8 each, and tiles as wide as the image
    with the array's own row step are handed out without copying; a
    neighbourhood operation takes any size (a multiple of 8 wide for bool
    images) and its source and out= may be moxpx.Image objects (for their
    border rule, or their own regions), but not share memory.
    out: the result array or a writable RawFile (a new array when None).
    roi/coi: the region of every image.
    """
    op = resolve(op, args)
    entry = getattr(op, "op", None)
    if entry is not None and entry.margin is not None and "m" not in entry.layout:
        return _neighbourhood(op, entry, args, kw, tile, threads, out, roi, coi)
    # The tiled image: the destination, or the one image written in place.
    written = entry and ("d" if entry.layout.count("d") == 1 and "w" not in entry.layout else
                        "w" if entry.layout.count("w") == 1 and "d" not in entry.layout else None)
    if not written or "m" not in entry.layout:
        raise ValueError("moxpx.parallel runs operations that write one image tile by tile "
                         "(whose call takes `mapping`) and neighbourhood filters; %s is neither"
                         % getattr(op, "__name__", op))
    bound = op.bind(*args, **kw)
    bound.apply_defaults()
    v = bound.arguments
    _, sources = image_arguments(bound)
    if written == "w":
        if out is not None:
            raise ValueError("%s writes its image in place: it takes no out=" % op.__name__)
        at = [k for k in entry.layout if k in "sw"].index("w")
        out = sources.pop(at)
    scalars = [_CONVERT[kind](v[p]) for p, kind, _ in entry.params]
    # The colour model of each image (as the operation's entry asks; the
    # tiled image's last) and whether images carry alpha.
    models = [entry.models[i] if entry.models else None
              for i, k in enumerate(entry.layout) if k == "s"]
    models.append(entry.models[entry.layout.index(written)] if entry.models else None)
    plain = [None if isinstance(s, RawFile) else
             image_of(s, roi, coi, model=m, alpha=entry.alpha) for s, m in zip(sources, models)]
    if out is None:
        # A raw file stands in by an array of its shape that holds no pixels.
        shapes = [p if p is not None else np.broadcast_to(np.zeros((), s.dtype), s.shape)
                  for p, s in zip(plain, sources)]
        h, w, c, dtype = entry.dst(shapes)
        out = new_array(h, w, c, dtype)
    target = out.array if isinstance(out, RawFile) else out
    if not isinstance(target, np.ndarray) or not target.flags.writeable:
        raise ValueError("out is a writable array or a RawFile opened for writing")
    th_, tw_ = target.shape[0], target.shape[1]
    tw, tht = int(tile[0]), int(tile[1])
    x0, y0, rw, rh = (0, 0, tw_, th_) if roi is None else tuple(int(t) for t in roi)
    x1, y1 = min(x0 + rw, tw_), min(y0 + rh, th_)
    tiles = [(tx, ty) for ty in range(y0 // max(tht, 1), max(y1 - 1, 0) // max(tht, 1) + 1)
             for tx in range(x0 // max(tw, 1), max(x1 - 1, 0) // max(tw, 1) + 1)]
    n = threads or os.cpu_count() or 1
    fn = _lib.functions[entry.cname]
    local = threading.local()
    made = []
    lock = threading.Lock()

    def images_of_thread():
        mine = getattr(local, "images", None)
        if mine is None:
            reg = _Registry()
            srcs = [p if p is not None else
                    TiledImage(s, (tw, tht), False, reg, m, entry.alpha)
                    for p, s, m in zip(plain, sources, models)]
            dst = TiledImage(out, (tw, tht), True, reg, models[-1], entry.alpha)
            for t in srcs + [dst]:
                if isinstance(t, TiledImage):
                    t.set_region(roi, coi)
            if written == "w":  # read as well as written: every tile starts from the image
                dst.whole = (0, 0, 0, 0)
                dst.changed = True
            mine = local.images = (reg, srcs, dst)
            with lock:
                made.append(mine)
        return mine

    def one(t):
        reg, srcs, dst = images_of_thread()
        it_src, it_sc = iter(srcs), iter(scalars)
        cargs = []
        for k in entry.layout:
            if k == "s":
                cargs.append(next(it_src).pointer)
            elif k == written:
                cargs.append(dst.pointer)
            elif k == "m":
                cargs.append(_pair(t))
            else:
                cargs.append(next(it_sc))
        try:
            _lib.call(fn, *cargs)
        finally:
            for s in srcs + [dst]:
                if isinstance(s, TiledImage) and s.error is not None:
                    e, s.error = s.error, None
                    raise e

    try:
        _on_threads(tiles, n, one)
    finally:
        for reg, _, _ in made:  # the call-back and its images refer to each other
            reg.images.clear()
    return out


def _on_threads(tiles, n, one):
    """Calls one(t) for every tile on n threads (the calling thread among
    them), each taking the next tile until none is left or a call failed;
    raises the first failure."""
    queue = iter(tiles)
    failures = []
    lock = threading.Lock()

    def worker():
        while not failures:
            with lock:
                t = next(queue, None)
            if t is None:
                return
            try:
                one(t)
            except BaseException as e:
                failures.append(e)

    pool = [threading.Thread(target=worker) for _ in range(min(n, len(tiles)) - 1)]
    for th in pool:
        th.start()
    worker()
    for th in pool:
        th.join()
    if failures:
        raise failures[0]


# ------------------------------------------------------------------ neighbourhood operations

# Morphology as the library runs it: its halves (erosion, dilation) in order.
_HALVES = {"moxErode": ("erode",), "moxDilate": ("dilate",), "moxOpen": ("erode", "dilate"),
           "moxClose": ("dilate", "erode")}


def _one_rule(header):
    """The four sides follow one valid border rule (constants equal)."""
    mode = header.borderMode[0]
    if not 0 <= mode <= 3:
        return False
    return all(header.borderMode[i] == mode and
               (mode != 0 or header.borderConst[i] == header.borderConst[0]) for i in range(1, 4))


def _clone(img, x, y, w, h, coi):
    """An Image over img's pixels with a header of its own whose region is
    (x, y, w, h) and channel coi; the library writes img's buffer."""
    c = Image.__new__(Image)
    c.array, c.planar, c.written, c.copied = img.array, img.planar, img.written, False
    c.height, c.width, c.channels = img.height, img.width, img.channels
    c._buffer, c._view = img._buffer, img._view
    c.roi = MoxROI(coi, x, y, h, w)
    c.header = MoxImage.from_buffer_copy(img.header)
    c.header.roi = ctypes.pointer(c.roi)
    c.pointer = ctypes.byref(c.header)
    return c


def _coi(img):
    return img.roi.coi if img.roi is not None else 0


def _step_image(src):
    """A whole image of src's layout and border rule for a morphology half,
    its region the whole image and src's channel."""
    a = np.zeros(src.array.shape, src.array.dtype)
    c = _coi(src)
    img = Image(a, roi=(0, 0, src.width, src.height) if c else None, coi=c, planar=src.planar,
                written=True)
    for i in range(4):
        img.header.borderMode[i] = src.header.borderMode[i]
        img.header.borderConst[i] = src.header.borderConst[i]
    return img


def _stages(op, entry, v, name, src):
    """The passes of the operation: functions call(S, D) that run it from
    Image S into Image D. Morphology whose library call works over whole
    intermediate images (opening, closing, and mixed border rules, which go
    one step at a time) runs those images as passes of their own, so that no
    tile repeats them."""
    whole = [lambda S, D: op(**dict(v, **{name: S, "out": D}))]
    halves = _HALVES.get(entry.cname)
    n = int(v.get("iterations", 1))
    if halves is None or n < 1:  # a count below 1 is refused as the single call refuses it
        return whole
    steps = [(half, n) for half in halves] if _one_rule(src.header) else \
        [(half, 1) for half in halves for _ in range(n)]
    if len(steps) == 1:
        return whole
    return [lambda S, D, f=FUNCTIONS[half], k=k: f(S, k, out=D) for half, k in steps]


def _tiles_of(srect, drect, tile):
    """The tiles of the common region on a grid of tile-sized cells of the
    destination, each as (source x, source y, x, y, width, height)."""
    sx, sy, sw, sh = srect
    dx, dy, dw, dh = drect
    w, h = min(sw, dw), min(sh, dh)
    tw, th = tile
    tiles = []
    for ty in range(dy // th, (dy + h - 1) // th + 1 if h > 0 and w > 0 else 0):
        y0, y1 = max(ty * th, dy), min((ty + 1) * th, dy + h)
        for tx in range(dx // tw, (dx + w - 1) // tw + 1):
            x0, x1 = max(tx * tw, dx), min((tx + 1) * tw, dx + w)
            tiles.append((sx + x0 - dx, sy + y0 - dy, x0, y0, x1 - x0, y1 - y0))
    return tiles


def _neighbourhood(op, entry, args, kw, tile, threads, out, roi, coi):
    bound = op.bind(*args, **kw)
    names, sources = image_arguments(bound)
    if len(sources) != 1:
        raise ValueError("moxpx.parallel runs neighbourhood operations of one source")
    src = sources[0].array if isinstance(sources[0], RawFile) else sources[0]
    S = image_of(src, roi, coi)
    if out is None:
        h, w, c, dtype = entry.dst([S])
        result = new_array(h, w, c, dtype, S.planar)  # in the source's order, as the call
        D = Image(result, planar=S.planar, written=True)
    else:
        result = out
        D = image_of(out.array if isinstance(out, RawFile) else out, roi, coi, written=True)
    if np.may_share_memory(D.array, S.array):
        raise ValueError("moxpx.parallel: the result of %s may not share memory with its "
                         "source (tiles would read pixels other tiles wrote)" % op.__name__)
    tw, th = (int(t) for t in tile)
    if tw < 1 or th < 1:
        raise ValueError("tile=(width, height) of at least 1 each, not %r" % (tile,))
    if tw % 8 and np.dtype(np.bool_) in (S.array.dtype, D.array.dtype):
        raise ValueError("tiles of bool images are a multiple of 8 wide (eight pixels share "
                         "a byte)")
    n = threads or os.cpu_count() or 1
    stages = _stages(op, entry, bound.arguments, names[0], S)
    if not _tiles_of(S.rect(), D.rect(), (tw, th)):  # an empty region: the single call
        stages[0](S, D)                              # reports what it reports
        D.finish()
        return result
    # Passes before the last run over whole images (the source's channel);
    # the last reads the previous pass's image over the source's region.
    cur, sc = S, _coi(S)
    for k, call in enumerate(stages):
        last = k == len(stages) - 1
        into = D if last else _step_image(S)
        srect = S.rect() if last else (0, 0, S.width, S.height)
        dc = _coi(into)
        _on_threads(_tiles_of(srect, into.rect(), (tw, th)), n,
                    lambda t, S=cur, D=into, call=call: call(
                        _clone(S, t[0], t[1], t[4], t[5], sc),
                        _clone(D, t[2], t[3], t[4], t[5], dc)))
        cur = into
    D.finish()
    return result
