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
    morvik.dmaRegionFree("MorvikLocal")
    morvik.dmaRegionFree("MorvikRemote")
    if old is None:
        del os.environ["SIMULATION_VMID"]
    else:
        os.environ["SIMULATION_VMID"] = old
