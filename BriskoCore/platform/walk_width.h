#pragma once

namespace brisko {

// How many threads one walk of a folder tree runs, the caller's included.
//
// This is not the processor count. A walk of folders that are in memory is
// bound by the processors, but a walk after a reboot is bound by the disk:
// each thread spends most of its time blocked in the kernel, waiting for one
// folder's blocks, and a disk (an NVMe or virtio queue, an SSD's channels)
// answers many requests at once. With as many threads as cores its queue
// stays nearly empty. On 2 cores and ext4 over a virtio disk, 16 threads
// walked a 1.5-million-entry tree cold 1.7 times faster than 2 did, and warm
// in the same time, since a thread that has nothing to wait for only takes
// its turn on a core.
//
// BRISKO_WALK_THREADS (1 to 64) sets the width for measurements.
unsigned treeWalkWidth();

}  // namespace brisko
