"""Values, keyed attributes, records, watching and the activity loop from a script."""
import morvik

MAP = "MorvikLib::MemoryMapping"


def mapping(name="m", vaddr=1, size=2, paddr=3, version=4):
    return morvik.new(MAP, name, vaddr, size, paddr, version)


def test_mapping_compares_prints_and_parses():
    a, b = mapping(version=4), mapping(version=5)
    assert a == mapping() and a != b and a < b and not b < a and b >= a
    assert not morvik.new(MAP, "", 0, 0, 0, 0) and mapping("", 0, 0, 0, 1) and mapping("x", 0, 0, 0, 0)
    top = mapping("q'", 2**64 - 1, 2**32 - 1, 2**64 - 1, 2**64 - 1)
    # The C++ tests check the text form itself; here the extremes survive the way through Python.
    assert morvik.fromStrRep(MAP, repr(top)) == top
    assert [top.name, top.vaddr, top.size] == ["q'", 2**64 - 1, 2**32 - 1]


def test_a_set_goes_through_the_setter_and_notifies_once():
    mem = morvik.new("MorvikLib::MorvikMemory", "mem")
    heard = []
    watch = morvik.watch(mem, lambda name, key: heard.append((name, key)))
    mem.remoteCopyChunkSize = 8192
    mem.remoteCopyChunkSize = 8192
    # vaddr 0: nothing mapped, so the entity's teardown has nothing to unmap.
    mem.localMemory = mapping(vaddr=0)
    mem.replicationStatusIs(3 * 8192, True)
    mem.replicationStatusBitmap[9] = 1
    del mem.replicationStatusBitmap[9]
    watch.cancel()
    mem.activeSupe = True
    assert heard == [("remoteCopyChunkSize", None), ("localMemory", None),
                     ("replicationStatusBitmap", 0), ("replicationStatusBitmap", 9),
                     ("replicationStatusBitmap", 9)]
    assert mem.localMemory == mapping(vaddr=0) and mem.activeSupe is True
    assert dict(mem.replicationStatusBitmap.items()) == {0: 8} and len(mem.replicationStatusBitmap) == 1
    assert mem.replicationStatus(3 * 8192) is True and 0 in mem.replicationStatusBitmap
    assert mem.replicationStatusBitmap.get(7) is None
    assert (mem.name, mem.fullName, mem.parent, mem.parentAttrName) == ("mem", "mem", None, "")
    assert mem.entity == mem and hash(mem.entity) == hash(mem)


def test_records_and_directory_as_mappings():
    requests = morvik.new("Kel::Dir", "auditRequests")
    for name in ("a", "b", "c"):
        requests.entity[name] = morvik.new("Morvik::AuditRequest", name)
    assert requests.entity.keys() == ["a", "b", "c"] and list(requests.entity) == ["a", "b", "c"]
    assert [morvik.typeName(v) for v in requests.entity.values()] == ["Morvik::AuditRequest"] * 3
    assert [k for k, _ in requests.entity.items("b")] == ["b", "c"]
    requests.entity["b"].auditMap[4096] = 100
    assert requests.entity["b"].auditMap.items() == [(4096, 100)]
    del requests.entity["a"]
    assert requests.entities == 2 and morvik.typeName(requests.entity["c"]) == "Morvik::AuditRequest"


def test_virtual_time_runs_the_audit_clock(mapped):
    start = morvik.currentTime()
    morvik.runUntil(start + 5.0)
    assert morvik.currentTime() == start + 5.0
    assert mapped.sm.morvikAuditSm.initialized and morvik.activityClock().scheduled >= 1
