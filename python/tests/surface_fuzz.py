"""Property: no call that the checked scripting surface lets through kills the interpreter.

Hypothesis draws batches of operations: calls of every function and sets of every attribute of the
library's four types and the shared records, members of keyed attributes, new objects, runs of the
activity loop, with arguments chosen by their declared types (offsets and sizes about the regions'
edges, region addresses, None, wrong types). A buffer address is 0 or that of a live buffer at
least `size` long. Each batch runs in a child interpreter on a simulated machine of its own; the
property holds when the child ends normally, every refusal having been a morvik.Error.

    surface_fuzz.py [--seed N|random] [--examples K] [--steps S]    run K batches of up to S
    surface_fuzz.py --unchecked ...                       the same without the checks: it must
                                                          fail at once, or it tests nothing
    surface_fuzz.py --batch [--unchecked]                 one batch, operations as JSON on stdin
"""
import argparse
import contextlib
import ctypes
import json
import math
import os
import subprocess
import sys

STEPS = 40
NUMBERS = [0, 1, 8, 100, 4095, 4096, 4097, 8192, 12288, 16383, 16384, 16385, 65536,
           0xFFFFFFF0, 2**32 - 1, 2**32, 2**64 - 1, -1, 3, 0x5a]
TEXTS = ["demo", "", "other", "MorvikLocal", "MorvikRemote", "a/b"]
FLOATS = [0.0, 5.0, 60.0, -1.0, 1e-300, math.inf, math.nan, 3600.0]
SETUP_TYPES = ["MorvikLib::MorvikMemory", "MorvikLib::MorvikMemorySm", "MorvikLib::MorvikAuditSm",
               "MorvikLib::MemoryMapping", "Morvik::Status", "Morvik::Manifest",
               "Morvik::FeatureManifest", "Morvik::Region", "Morvik::Audit",
               "Morvik::AuditRequest", "Morvik::AuditStatus", "Kel::Dir", "Kel::Clock"]
LOOPS = ["runPass", "runUntilRest", "runNextPass", "runUntil", "runUntilIdle"]


# Every operation is (kind, a, b, picks, n); each kind reads what it needs.
KINDS = ["call"] * 8 + ["set"] * 3 + ["member", "del", "new", "new", "loop", "loop", "env", "drop",
         "nosim"]


def operations(steps=STEPS):
    from hypothesis import strategies as st
    choices = st.lists(st.integers(0, 40), max_size=8)
    op = st.tuples(st.sampled_from(KINDS), st.integers(0, 60), st.integers(0, 60), choices,
                   st.integers(0, 9))
    return st.lists(op, min_size=steps // 2, max_size=steps)


def run_batch(ops, unchecked, timeout=60):
    """Runs one batch in a child; returns None when it ended normally, else what happened."""
    command = [sys.executable, __file__, "--batch"] + (["--unchecked"] if unchecked else [])
    child = subprocess.run(command, input=json.dumps(ops),
                           capture_output=True, text=True, timeout=timeout)
    if child.returncode == 0:
        return None
    done = [line for line in child.stdout.splitlines() if line.startswith("op ")]
    return "exit %d after %s\n%s" % (child.returncode, done[-1] if done else "no operation",
                                     child.stderr[-3000:])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--batch", action="store_true")
    parser.add_argument("--unchecked", action="store_true")
    parser.add_argument("--seed", default="20261123")
    parser.add_argument("--examples", type=int, default=30)
    parser.add_argument("--steps", type=int, default=STEPS)
    args = parser.parse_args()
    if args.batch:
        batch = Batch(json.load(sys.stdin))
        with batch.morvik.unchecked() if args.unchecked else contextlib.nullcontext():
            batch.run()
        return 0
    from hypothesis import given, seed, settings, HealthCheck
    chosen = int.from_bytes(os.urandom(4), "little") if args.seed == "random" else int(args.seed)
    print("surface fuzz: seed %d, %d batches of up to %d operations" % (chosen, args.examples,
                                                                        args.steps), flush=True)

    @seed(chosen)
    @settings(max_examples=args.examples, deadline=None, database=None,
              suppress_health_check=list(HealthCheck))
    @given(operations(args.steps))
    def never_dies(ops):
        failure = run_batch(ops, args.unchecked)
        assert failure is None, failure

    never_dies()
    print("surface fuzz: every batch ended normally")
    return 0


class Batch:
    """One child's run: a simulated machine, a pool of objects, the operations."""

    def __init__(self, ops):
        import morvik
        self.morvik = morvik
        self.ops = ops
        self.buffers = []
        self.mappings = []
        os.environ["SIMULATION_VMID"] = "fuzz-%d" % os.getpid()
        morvik.virtualTimeIs(True, 1000.0)
        self.pool = self.machine()

    def machine(self):
        from conftest import chassis
        c = chassis(self.morvik.new("Kel::Dir", "requests"))
        return [c.mem, c.sm, c.sm.morvikAuditSm, c.status, c.manifest, c.audit, c.request,
                c.requests, c.audit.auditStatus["demo"], self.morvik.activityClock(),
                self.morvik.new("MorvikLib::MemoryMapping", "", 0, 0, 0, 0)]

    def run(self):
        for i, op in enumerate(self.ops):
            print("op %d %s" % (i, json.dumps(op)), flush=True)
            try:
                getattr(self, "op_" + op[0])(*op[1:])
            except (self.morvik.Error, KeyError):
                pass
        self.pool.clear()
        for name in ("MorvikLocal", "MorvikRemote"):
            self.morvik.dmaRegionFree(name)

    # Operations.

    def target(self, index):
        objects = [o for o in self.pool if o is not None]
        return objects[index % len(objects)] if objects else None

    def attribute(self, obj, index, kinds):
        attrs = [a for a in self.morvik.attributes(self.morvik.typeName(obj)) if a[2] in kinds]
        return attrs[index % len(attrs)] if attrs else None

    def op_call(self, target, index, picks, exact):
        return self.use(target, index, picks, exact, ("function",))

    def op_nosim(self, target, index, picks, exact):
        """A memory entity's function outside simulation (nothing that could map /dev/mem)."""
        from conftest import outside_simulation
        memories = self.memories()
        if memories:
            outside_simulation(lambda: self.use(target, index, picks, exact, ("function",),
                                                only=memories))

    def op_set(self, target, index, picks, exact):
        return self.use(target, index, picks, exact, ("settable",))

    def op_member(self, target, index, picks, exact):
        return self.use(target, index, picks, exact, ("keyed",))

    def op_del(self, target, index, picks, exact):
        obj = self.target(target)
        attr = obj is not None and self.attribute(obj, index, ("keyed",))
        if attr:
            del getattr(obj, attr[0])[self.value(attr[4], "key", picks[:1] or [0], {})]

    def use(self, target, index, picks, exact, kinds, only=None):
        # Among the objects that have such attributes, the library's own drawn most often.
        objects = [o for o in only or self.pool if o is not None and self.attribute(o, 0, kinds)]
        objects += [o for o in objects if self.morvik.typeName(o).startswith("MorvikLib::")] * 2
        if not objects:
            return
        obj = objects[target % len(objects)]
        attr = self.attribute(obj, index, kinds)
        name, kind = attr[0], attr[2]
        if kind == "settable":
            setattr(obj, name, self.value(attr[1], name, picks or [0], {}))
        elif kind == "keyed":
            key = self.value(attr[4], "key", picks[:1] or [0], {})
            getattr(obj, name)[key] = self.value(attr[1], name, picks[1:] or [0], {})
        else:
            args = self.arguments(attr[3], picks)
            getattr(obj, name)(*(args if exact else args[:-1]))
            if name.startswith("do") or name.startswith("remote") or name.startswith("set"):
                self.remember(obj)

    def op_new(self, type_index, _, picks, __):
        type_name = SETUP_TYPES[type_index % len(SETUP_TYPES)]
        args = self.arguments(self.morvik.constructorArgs(type_name), picks)
        self.pool.append(self.morvik.new(type_name, *args))

    def op_loop(self, index, pick, _, __):
        name = LOOPS[index % len(LOOPS)]
        loop = getattr(self.morvik, name)
        if name == "runUntil":
            loop(self.morvik.currentTime() + FLOATS[pick % len(FLOATS)])
        elif name == "runUntilIdle":
            loop(pick)
        else:
            loop()

    def op_env(self, which, on, _, __):
        name = ["NOSYNC_MORVIK", "AGENT_PROCESS_NAME"][which % 2]
        if on % 2:
            os.environ[name] = "x"
        else:
            os.environ.pop(name, None)

    def op_drop(self, target, _, __, ___):
        if self.pool:
            self.pool.pop(target % len(self.pool))

    # Values by declared type.

    def arguments(self, declared, picks):
        args, named = [], {}
        for i, (type_name, name) in enumerate(declared):
            args.append(self.value(type_name, name, picks[i:i + 1] or [0], named))
            named[name] = args[-1]
        # A buffer is chosen once the size it must hold is known.
        for i, (type_name, name) in enumerate(declared):
            if name == "data" or (name == "src" and picks[i:i + 1] and picks[i] % 2):
                args[i] = self.buffer(named.get("size"), picks[i:i + 1] or [0], type_name)
        return args

    def value(self, type_name, name, picks, named):
        pick = picks[0]
        if pick == 40:
            return [None, "x", 1.5, [], -1][len(named) % 5]
        if type_name in ("U8", "U32", "U64", "int"):
            if name in ("dest", "src"):
                return self.address(pick)
            return NUMBERS[pick % len(NUMBERS)]
        if type_name == "bool":
            return bool(pick % 2)
        if type_name == "double":
            return FLOATS[pick % len(FLOATS)]
        if type_name in ("Kel::Name", "Kel::String"):
            return TEXTS[pick % len(TEXTS)]
        if type_name == "MorvikLib::MemoryMapping":
            return self.mapping(pick)
        if type_name == "Kel::BytePtr":
            return None
        candidates = [o for o in self.pool if o is not None and self.is_a(o, type_name)]
        if pick % 7 == 6 or not candidates:
            return None if pick % 2 else self.target(pick)
        return candidates[pick % len(candidates)]

    def is_a(self, obj, type_name):
        own = self.morvik.typeName(obj)
        return own == type_name or (type_name == "Kel::Entity" and own != "MorvikLib::MemoryMapping")

    def buffer(self, size, picks, type_name):
        if picks[0] % 5 == 4 or not isinstance(size, int) or not 0 <= size <= 1 << 20:
            address = 0
        else:
            data = ctypes.create_string_buffer((bytes(range(1, 256)) * (size // 255 + 1))[:size], size + 1)
            self.buffers.append(data)
            address = ctypes.addressof(data)
        return self.morvik.bytePtr(address) if type_name == "Kel::BytePtr" else address

    def memories(self):
        return [o for o in self.pool if o is not None
                and self.morvik.typeName(o) == "MorvikLib::MorvikMemory"]

    def remember(self, obj):
        if self.morvik.typeName(obj) == "MorvikLib::MorvikMemory":
            for slot in ("localMemory", "localMemoryWritableShadow", "remoteMemory",
                         "remoteMemoryWritableShadow"):
                self.mappings.append(getattr(obj, slot))

    def address(self, pick):
        memories = self.memories()
        if not memories or pick % 6 == 5:
            return self.buffer(NUMBERS[pick % 6], [0], "U64")
        mem = memories[pick % len(memories)]
        slot = getattr(mem, ["localMemory", "remoteMemory", "localMemoryWritableShadow",
                             "remoteMemoryWritableShadow"][pick % 4])
        return slot.vaddr + [0, 1, 4096, 16384 - 8, 16384, -8][pick % 6] if slot.vaddr else 0

    def mapping(self, pick):
        for mem in self.memories():
            self.remember(mem)
        seen = self.mappings[-16:]
        if seen and pick % 4:
            real = seen[pick % len(seen)]
            size = real.size if pick % 3 else real.size + 4096
            return self.morvik.new("MorvikLib::MemoryMapping", real.name, real.vaddr, size,
                                   real.paddr, real.version)
        vaddr = [0, 0x10000, self.buffer(64, [0], "U64")][pick % 3]
        return self.morvik.new("MorvikLib::MemoryMapping", "mem", vaddr, 4096 * (pick % 5), 0, 0)


if __name__ == "__main__":
    sys.exit(main())
