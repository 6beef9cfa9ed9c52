#include "Options.h"

namespace MorvikSim {

std::string usageText() {
  return R"(Usage: morvik_sim [OPTION...]

Simulates one chassis: the active supervisor's MorvikLib (one MorvikMemory and one
MorvikMemorySm per feature, with their audits) mirrors the features' state into the standby's
memory, while the simulator plays the other agents (manifest, status, the standby's audit
responder), drives a feature workload and injects faults. At the end the active stops without
warning (a switchover) and the standby's copy is compared with the active's memory.

Everything runs in one process on real shared memory, on a simulated machine of its own
(SIMULATION_VMID is set to a fresh value unless given). Chassis time is virtual unless
--real-time is given, so an hour of chassis time takes a few seconds.

Run:
  --duration T          chassis time to run (default 1h)
  --switchover-at T     stop the active at T instead of at the end of the run
  --real-time           run on the real clock instead of virtual time
  --seed N              seed of the workload and of the fault schedule (default 1)

Layout:
  --feature NAME:SIZE   a feature of SIZE bytes (suffix K, M, G); repeat for more. The first
                        one replaces the default layout (routes:1M, neighbors:512K,
                        sessions:256K, counters:64K). Every feature must be a whole number of
                        chunks for every chunk size of the run, or the manifest is refused.
  --chunk-sizes LIST    chunk sizes of the run, powers of two from 64 to 16M (default
                        4096,16384); the first is used from the start, chunk faults without a
                        size switch to the next one in turn

Workload (writes through doWrite, doSet and doCopy, from the activity loop):
  --rate N              operations per second of chassis time, in a Poisson stream (default
                        200; 0 for none)
  --mix small=W,table=W,set=W,copy=W
                        relative weights (default small=80,table=4,set=8,copy=8): short doWrite
                        updates, whole-chunk doWrite tables, doSet fills and doCopy moves of up
                        to 512 bytes
  --small-max BYTES     largest short update (default 256)
  --locality P          share of operations that land in their feature's hot eighth (default
                        0.95); the rest go anywhere in the feature

Audit:
  --audit-interval T    seconds between audit ticks (default 60s)

Faults:
  --faults default|none the default schedule runs when no --fault is given; "default" keeps it
                        with explicit faults, "none" runs only the explicit ones
  --corruptions N       corruptions in the default schedule (default 8): two in one audit
                        interval of one feature, one in the silent standby's feature, one just
                        before the standby's memory goes away, one just before a chunk-size
                        change, the rest at random
  --fault KIND@TIME[,key=value...]
                        one fault; repeat for more. Kinds and keys:
      corrupt[,feature=NAME][,offset=N]
                        flip one byte of the standby's copy (doWriteRemoteTest)
      silent[,feature=NAME][,for=T]
                        the standby's audit responder stays silent (default 6.5 audit intervals,
                        long enough for the audit to give up and resync)
      away[,for=T][,record=zero|null]
                        the standby's memory goes away (status record with address 0, or no
                        record) and comes back blank after T (default 2 audit intervals): full
                        resync
      chunk[,size=BYTES]
                        every memory changes its chunk size (remoteCopyChunkSizeIs): full resync
  --nosync              set NOSYNC_MORVIK for the run, so every resync does nothing (a run that
                        must fail when corruptions are injected)
  Signal SIGUSR1 injects one corruption at once; SIGINT or SIGTERM ends the run with a switchover.

Output:
  --json                print the final report as JSON instead of text
  --csv FILE            write the timeline: time, pending chunks, bytes mirrored, audit events
  --plot FILE.png       draw the timeline with gnuplot (Debian package gnuplot-nox)
  --sample T            timeline sample interval (default: about 720 samples per run)
  --quiet               no live progress line (it is only shown when stderr is a terminal)
  --vmid ID             run on simulated machine ID instead of a fresh one
  --help                this text

Times take a unit: ms, s, m or h (no unit: seconds). Sizes take K, M or G (powers of 1024).

Exit status: 0 when every check held (after the copier came to rest the two copies were equal,
and every injected corruption was repaired, by the audit or otherwise); 1 when a check failed
(the report says why); 2 for a bad option or value; 3 when the run could not be set up or an
output could not be written; 130 when interrupted.
)";
}

}  // namespace MorvikSim
