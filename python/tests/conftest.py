import gc
import os

import pytest

import morvik


@pytest.fixture
def machine():
    """A simulated machine of the test's own, virtual time, and no DMA regions left behind."""
    old = os.environ.get("SIMULATION_VMID")
    os.environ["SIMULATION_VMID"] = "pytest-%d-%d" % (os.getpid(), id(object()))
    morvik.virtualTimeIs(True, 1000.0)
    yield
    # Entities still caught in a failed test's traceback go while their machine is current.
    gc.collect()
    morvik.dmaRegionFree("MorvikLocal")
    morvik.dmaRegionFree("MorvikRemote")
    if old is None:
        del os.environ["SIMULATION_VMID"]
    else:
        os.environ["SIMULATION_VMID"] = old


SIZE = 16384


@pytest.fixture
def mapped(machine):
    """The README's chassis, with an audit: both regions mapped through the state machine."""
    m = morvik
    peer = m.dmaRegionAlloc("MorvikRemote", SIZE)
    c = type("Chassis", (), {})()
    c.manifest = m.new("Morvik::Manifest", "manifest")
    c.manifest.manifest["demo"] = m.new("Morvik::FeatureManifest", "demo", SIZE, 0)
    c.status = m.new("Morvik::Status", "status")
    c.status.activeSupe = 1
    c.status.remoteMemory = m.new("Morvik::Region", "remoteMemory", peer, SIZE, 1, "MorvikRemote")
    c.audit, c.request = m.new("Morvik::Audit", "audit"), m.new("Morvik::AuditRequest", "demo")
    c.audit.auditStatus["demo"] = m.new("Morvik::AuditStatus", "demo")
    c.mem = m.new("MorvikLib::MorvikMemory", "demo")
    c.sm = m.new("MorvikLib::MorvikMemorySm", "demo", c.status, c.manifest, c.audit, c.request,
                 None, c.mem)
    yield c
    del c.sm, c.mem
