import gc
import os
import types

import pytest

import morvik

SIZE = 16384


def outside_simulation(call):
    """Calls call() with SIMULATION_VMID unset, as on hardware."""
    vmid = os.environ.pop("SIMULATION_VMID")
    try:
        call()
    finally:
        os.environ["SIMULATION_VMID"] = vmid


def chassis(requests=None):
    """The README's chassis, with an audit: both regions mapped through the state machine."""
    m = morvik
    peer = m.dmaRegionAlloc("MorvikRemote", SIZE)
    c = types.SimpleNamespace(requests=requests)
    c.manifest = m.new("Morvik::Manifest", "manifest")
    c.manifest.manifest["demo"] = m.new("Morvik::FeatureManifest", "demo", SIZE, 0)
    c.status = m.new("Morvik::Status", "status")
    c.status.activeSupe = 1
    c.status.remoteMemory = m.new("Morvik::Region", "remoteMemory", peer, SIZE, 1, "MorvikRemote")
    c.audit, c.request = m.new("Morvik::Audit", "audit"), m.new("Morvik::AuditRequest", "demo")
    c.audit.auditStatus["demo"] = m.new("Morvik::AuditStatus", "demo")
    c.mem = m.new("MorvikLib::MorvikMemory", "demo")
    c.sm = m.new("MorvikLib::MorvikMemorySm", "demo", c.status, c.manifest, c.audit, c.request,
                 requests, c.mem)
    return c


@pytest.fixture
def mapped():
    """The chassis on a simulated machine of the test's own, on virtual time; no DMA regions are
    left behind."""
    old = os.environ.get("SIMULATION_VMID")
    os.environ["SIMULATION_VMID"] = "pytest-%d-%d" % (os.getpid(), id(object()))
    morvik.virtualTimeIs(True, 1000.0)
    c = chassis()
    yield c
    del c.sm, c.mem
    # Entities still caught in a failed test's traceback go while their machine is current.
    gc.collect()
    morvik.dmaRegionFree("MorvikLocal")
    morvik.dmaRegionFree("MorvikRemote")
    if old is None:
        del os.environ["SIMULATION_VMID"]
    else:
        os.environ["SIMULATION_VMID"] = old
