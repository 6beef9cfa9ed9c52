"""Every refusal of the generic interface reaches Python as an exception with the framework's
message; none of them touches the library."""
import pytest

import morvik

MEM = "MorvikLib::MorvikMemory"
MAP = "MorvikLib::MemoryMapping"
T, O = morvik.TypeMismatchError, morvik.OpNotSupportedError


@pytest.fixture
def mem():
    return morvik.new(MEM, "mem")


# A value, not an entity: the tests can share it.
M = morvik.new(MAP, "m", 1, 2, 3, 4)


# Each route from Python to a refusal, and each refusal no C++ test words, once: the C++ tests word
# the others and check the declarations these messages quote.
CASES = [
    ("ctor count", lambda mem: morvik.new(MEM), T,
     "MorvikLib::MorvikMemory constructor: expected 1 argument (Kel::Name name), got 0"),
    ("negative number", lambda mem: mem.doSet(-1, 0, 1), T,
     "MorvikLib::MorvikMemory.doSet: argument 1 (U32 offset): expected U32, got int -1 "
     "(out of range)"),
    ("set type to mapping", lambda mem: setattr(mem, "localMemory", 5), T,
     "MorvikLib::MorvikMemory.localMemory: expected MorvikLib::MemoryMapping, got U64 5"),
    ("unknown attribute", lambda mem: mem.nope, O,
     "MorvikLib::MorvikMemory.nope: no such attribute"),
    ("set a function", lambda mem: setattr(mem, "doSync", 1), O,
     "MorvikLib::MorvikMemory.doSync: a function, call it instead"),
    ("set keyed as scalar", lambda mem: setattr(mem, "replicationStatusBitmap", 1), O,
     "MorvikLib::MorvikMemory.replicationStatusBitmap: a keyed attribute, look up, set or delete "
     "a member by key instead"),
    ("keyed key type", lambda mem: mem.replicationStatusBitmap["k"], T,
     "MorvikLib::MorvikMemory.replicationStatusBitmap key: expected U64, got Kel::String 'k'"),
    ("keyed value range", lambda mem: mem.replicationStatusBitmap.__setitem__(0, 256), T,
     "MorvikLib::MorvikMemory.replicationStatusBitmap: expected U8, got U64 256 (out of range)"),
    ("mapping field set", lambda mem: setattr(M, "vaddr", 5), O,
     "MorvikLib::MemoryMapping.vaddr: read-only attribute, set is not supported"),
    ("mapping hash", lambda mem: hash(M), morvik.UnhashableError,
     "MorvikLib::MemoryMapping: unhashable type"),
    ("mapping other type op", lambda mem: morvik.watch(M, print), O,
     "MorvikLib::MemoryMapping: watching is not supported"),
    ("mapping compared with another type", lambda mem: M < morvik.new("Kel::Dir", "d"), T,
     "MorvikLib::MemoryMapping ordering: expected MorvikLib::MemoryMapping, got Kel::Dir"),
    ("mapping compared with a plain number", lambda mem: M < 5, T,
     "MorvikLib::MemoryMapping ordering: expected MorvikLib::MemoryMapping, got U64 5"),
    ("mapping text with a tail", lambda mem: morvik.fromStrRep(MAP, repr(M) + "x"),
     morvik.ParseError, 'unexpected text after the value: "x"'),
    ("mapping text bad number", lambda mem: morvik.fromStrRep(MAP, repr(M).replace("2", "x")),
     morvik.RangeError, "size: expected an unsigned number"),
    ("unknown type", lambda mem: morvik.new("MorvikLib::Nope"), morvik.RangeError,
     "MorvikLib::Nope: no such type is registered"),
    ("python value", lambda mem: mem.doSet([], 0, 1), T,
     "a list cannot be passed to the generic interface"),
]


MODULE_CASES = [
    (lambda mem: morvik.dmaRegionAlloc("X", -1), T,
     "morvik.dmaRegionAlloc: argument 2 (U32 length): expected U32, got int -1 (out of range)"),
    (lambda mem: morvik.dmaRegionAlloc("X", 0), morvik.RangeError,
     "morvik.dmaRegionAlloc: a region of 0 bytes cannot be created"),
    (lambda mem: morvik.dmaRegionAlloc("", 16), morvik.RangeError,
     "morvik.dmaRegionAlloc: a region needs a non-empty name"),
    (lambda mem: morvik.dmaRegionFree(), T,
     "morvik.dmaRegionFree: expected 1 argument (Kel::String name), got 0"),
    (lambda mem: morvik.watch(None, print), T,
     "morvik.watch: argument 1 (morvik.Object object): expected a framework object, got None"),
    (lambda mem: morvik.watch(mem, None), T,
     "morvik.watch: argument 2 (callable callback): expected a callable, got None"),
    (lambda mem: morvik.attributes(None), T,
     "morvik.attributes: argument 1 (Kel::String typeName): expected Kel::String, got None"),
    (lambda mem: morvik.new(None), T,
     "morvik.new: argument 1 (Kel::String typeName): expected Kel::String, got None"),
    (lambda mem: morvik.new(""), morvik.RangeError,
     "morvik.new: the type name is empty; morvik.typeNames() lists the registered types"),
    (lambda mem: morvik.new(), T,
     "morvik.new: expected a type name and the constructor's arguments, got nothing"),
    (lambda mem: morvik.typeName(5), T,
     "morvik.typeName: argument 1 (morvik.Object object): expected a framework object, got U64 5"),
    (lambda mem: morvik.runUntil(float("nan")), morvik.RangeError,
     "morvik.runUntil: argument 1 (double t): expected a finite time, got nan"),
    (lambda mem: morvik.runUntil(time=5), T, "morvik.runUntil: no argument is named 'time'"),
    (lambda mem: morvik.runUntilIdle(-1), T,
     "morvik.runUntilIdle: argument 1 (U64 maxPasses): expected U64, got int -1 (out of range)"),
    (lambda mem: morvik.virtualTimeIs(), T,
     "morvik.virtualTimeIs: expected 1 to 2 arguments (bool on, double start), got 0"),
    (lambda mem: morvik.bytePtr([]), T,
     "morvik.bytePtr: argument 1 (U64 address): a list cannot be passed to the generic interface"),
    (lambda mem: morvik.Object(), O,
     "morvik.Object: objects are made by morvik.new or read from attributes"),
    (lambda mem: mem.doSync(now=True), T,
     "MorvikLib::MorvikMemory.doSync: arguments are given by position only"),
]


@pytest.mark.parametrize("call,error,message", [c[1:] for c in CASES] + MODULE_CASES,
                         ids=[c[0] for c in CASES] + [None] * len(MODULE_CASES))
def test_refusal(mem, call, error, message):
    with pytest.raises(error) as raised:
        call(mem)
    assert str(raised.value) == message
    assert isinstance(raised.value, morvik.Error)


def test_refusals_leave_the_entity_as_it_was(mem):
    watched = []
    with morvik.watch(mem, lambda name, key: watched.append(name)):
        for bad in (lambda: mem.doWrite_py(1), lambda: setattr(mem, "remoteCopyChunkSize", -5)):
            with pytest.raises(morvik.Error):
                bad()
    assert watched == [] and mem.remoteCopyChunkSize == 4096


def test_python_categories_match_builtins():
    assert issubclass(morvik.OpNotSupportedError, AttributeError)
    assert issubclass(morvik.TypeMismatchError, TypeError)
    assert issubclass(morvik.UnhashableError, morvik.TypeMismatchError)
    assert issubclass(morvik.RangeError, ValueError)
    assert issubclass(morvik.ErrnoError, OSError)
