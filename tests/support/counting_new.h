// A program that links counting_new.cpp gets the global operator new and delete replaced: every
// allocation is counted, live blocks are kept count of, and the k-th allocation can be made to
// fail as the system does when memory runs out (the throwing forms throw std::bad_alloc, the
// non-throwing ones give null). This reaches every allocation, the standard library's included;
// zy::FailNthAllocation reaches only the library's own allocation points.
#pragma once

// Calls of operator new so far, failed ones included.
long HeapAllocations();
// Blocks allocated by operator new and not yet released.
long LiveHeapBlocks();
// The k-th operator new from now fails (k >= 1); k <= 0 disarms.
void FailNthHeapAllocation(long k);
// True while an armed failure has not happened yet.
bool HeapFailurePending();
