"""Every mistake a script can make with the library comes back as a Python exception naming the
call, and quoting the library's assertion where the library would have asserted."""
import ctypes
import os
import subprocess
import sys

import pytest

import morvik
from conftest import SIZE, outside_simulation

MAP = "MorvikLib::MemoryMapping"
SM = "MorvikLib::MorvikMemorySm"
P = morvik.PreconditionError


def buf(size=16):
    data = ctypes.create_string_buffer(size)
    buf.alive.append(data)
    return ctypes.addressof(data)


buf.alive = []


def held_audit_with_role_0(c):
    held = c.sm.morvikAuditSm
    c.status.activeSupe = 0
    morvik.runUntil(morvik.currentTime() + 6)


MISTAKES = [
    ("write past 2^32", lambda c: c.mem.doWrite_py(0xFFFFFFF0, buf(), 16), P,
     'lie outside local memory (16384 bytes); the library would fail "localMemory().size() >= '
     '( byteOffset + size )"'),
    ("read past 2^32", lambda c: c.mem.doRead_py(0xFFFFFFF0, buf(), 16), P,
     '"localMemory().size() >= ( byteOffset + size )"'),
    ("remote read past 2^32", lambda c: c.mem.doReadRemoteTest_py(0xFFFFFFF0, buf(), 16), P,
     '"remoteMemory().size() >= ( byteOffset + size )"'),
    ("set starting past the end", lambda c: c.mem.doSet(SIZE, 0x5a, 16), P,
     "doSet: bytes [16384, 16400) lie outside local memory (16384 bytes)"),
    ("set running past the end", lambda c: c.mem.doSet(SIZE - 8, 0x5a, 16), P,
     '"dest + size <= localMemory().vaddr() + localMemory().size()"'),
    ("copy past the end", lambda c: c.mem.doCopy(SIZE, 0, 16), P, "lie outside local memory"),
    ("chunk size 0", lambda c: setattr(c.mem, "remoteCopyChunkSize", 0), P,
     "remoteCopyChunkSize: 0 is not a non-zero power of two"),
    ("chunk size 3", lambda c: setattr(c.mem, "remoteCopyChunkSize", 3), P,
     "3 is not a non-zero power of two"),
    ("state machine without status",
     lambda c: morvik.new(SM, "x", None, c.manifest, None, None, None, c.mem), P,
     "constructor: argument 2 (Morvik::Status morvikStatus) is None, and the state machine "
     "dereferences it"),
    ("state machine without memory",
     lambda c: morvik.new(SM, "x", c.status, c.manifest, None, None, None, None), P,
     "argument 7 (MorvikLib::MorvikMemory morvikMemory) is None"),
    ("manifest set to None", lambda c: setattr(c.sm, "morvikManifest", None), P,
     "morvikManifest: the new manifest is None"),
    ("hardware run without a local range",
     lambda c: outside_simulation(lambda: morvik.new(
         SM, "demo", c.status, c.manifest, None, None, None,
         morvik.new("MorvikLib::MorvikMemory", "hw"))), P,
     "outside simulation the manifest must give the local memory's range"),
    ("audit without its request", lambda c: setattr(c.sm, "morvikAudit", None), P,
     '"!morvikAudit() == !morvikAuditRequest()"'),
    ("made-up mapping", lambda c: c.mem.setLocal(morvik.new(MAP, "m", 0x1000, 4096, 0, 0),
                                                 morvik.new(MAP, "m", 0x2000, 4096, 0, 0)), P,
     "argument 1 (map) at 0x1000 (4096 bytes) is backed by no live mapping of this process"),
    ("another entity's mapping",
     lambda c: morvik.new("MorvikLib::MorvikMemory", "b").setLocal(
         c.mem.localMemory, c.mem.localMemoryWritableShadow), P,
     "is not a mapping the library made for localMemory that no entity holds"),
    ("mapping without its shadow",
     lambda c: c.mem.setLocal(c.mem.localMemory, morvik.new(MAP, "", 0, 0, 0, 0)), P,
     '"localMemoryWritableShadow().vaddr()"'),
    ("null buffer", lambda c: c.mem.doWrite_py(0, 0, 16), P, "the buffer address is null"),
    ("unmapped buffer", lambda c: c.mem.doWrite_py(0, 0x10, 16), P,
     "the buffer at 0x10 is not readable memory of this process for 16 bytes"),
    ("read with nothing mapped", lambda c: morvik.new("MorvikLib::MorvikMemory", "n").doRead_py(
        0, buf(), 4), P, 'local memory is not mapped; the library would fail "localMemory().vaddr()"'),
    ("remote store longer than a chunk", lambda c: c.mem.remoteSet(0, 1, 8192), P,
     '"size <= remoteCopyChunkSize()"'),
    ("remote test write longer than a chunk",
     lambda c: c.mem.doWriteRemoteTest_py(0, buf(8192), 8192), P, "longer than a chunk (4096"),
    ("test path outside simulation",
     lambda c: outside_simulation(lambda: c.mem.doWriteLocalTest_py(0, buf(), 4)), P,
     '"inSimulationEnv()"'),
    ("store outside the regions", lambda c: c.mem.protectedMemorySet(0x10, 0, 1), P,
     "address 0x10 lies outside the mapped regions of 'demo'"),
    ("write access outside the regions", lambda c: c.sm.setWriteAccess(0x10000, 4096, 1), P,
     "does not start inside local or remote memory"),
    ("write access not page-aligned",
     lambda c: c.sm.setWriteAccess(c.mem.localMemory.vaddr + 1, 4096, 1), P,
     'is not page-aligned (4096 bytes); mprotect would refuse; the library would fail "rval == 0"'),
    ("write then store into a read-only page",
     lambda c: (c.sm.setWriteAccess(c.mem.localMemory.vaddr, 4096, 1),
                c.mem.doWrite_py(0, buf(), 16)), P, "write-protected by setWriteAccess"),
    ("peer's range too short for the feature",
     lambda c: setattr(c.status, "remoteMemory", morvik.new("Morvik::Region", "r", 1 << 32, 4096,
                                                            1, "MorvikRemote")), P,
     "state machine 'demo', handleMorvikRemoteMemVersion: handleRemoteMemoryChange: feature 'demo' "
     'at [0, 16384) reaches past the peer\'s range in the status (4096 bytes); the library would '
     'fail "byteOffset + sizeW <= morvikStatus()->remoteMemory()->size()"'),
    ("audit ticking with role 0", held_audit_with_role_0, P,
     "its clock tick: the status's activeSupe is 0; the library would fail "
     '"morvikStatus()->activeSupe()"'),
    ("loop that never goes idle", lambda c: morvik.runUntilIdle(), P,
     "the audit re-arms its clock on every tick, so the loop never goes idle"),
    ("audit interval 0", lambda c: setattr(c.sm.morvikAuditSm, "auditInterval", 0), P,
     "would re-arm the audit at the same time forever"),
]


@pytest.mark.parametrize("call,error,fragment", [m[1:] for m in MISTAKES],
                         ids=[m[0] for m in MISTAKES])
def test_mistake(mapped, call, error, fragment):
    with pytest.raises(error) as raised:
        call(mapped)
    assert fragment in str(raised.value)
    assert isinstance(raised.value, (morvik.Error, ValueError))


def test_refused_calls_leave_the_mirror_working(mapped):
    for _, call, _, _ in MISTAKES[:8]:
        with pytest.raises(morvik.Error):
            call(mapped)
    data = ctypes.create_string_buffer(b"\x5a" * 64, 64)
    mapped.mem.doWrite_py(SIZE - 64, ctypes.addressof(data), 64)
    back = ctypes.create_string_buffer(64)
    mapped.mem.doReadRemoteTest_py(SIZE - 64, ctypes.addressof(back), 64)
    assert back.raw == data.raw


def test_unchecked_reaches_the_library_assertion(tmp_path):
    script = tmp_path / "unchecked.py"
    script.write_text(
        "import ctypes, morvik\n"
        "mem = morvik.new('MorvikLib::MorvikMemory', 'm')\n"
        "b = ctypes.create_string_buffer(16)\n"
        "with morvik.unchecked():\n"
        "    mem.doWrite_py(1, ctypes.addressof(b), 16)\n")
    child = subprocess.run([sys.executable, str(script)], capture_output=True, text=True,
                           timeout=60)
    assert child.returncode != 0
    assert "localMemory().size() >= ( byteOffset + size )" in child.stderr


def test_an_entity_left_on_another_machine_is_kept_not_torn_down(mapped, capfd):
    vmid = os.environ["SIMULATION_VMID"]
    os.environ["SIMULATION_VMID"] = vmid + "-other"
    try:
        del mapped.sm, mapped.mem
    finally:
        os.environ["SIMULATION_VMID"] = vmid
    assert "kept alive instead of torn down" in capfd.readouterr().err
    mapped.sm = mapped.mem = None
