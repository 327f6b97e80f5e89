// Replaces the global operator new and delete of a test program: counts allocations, keeps the
// number of live blocks, and fails the k-th allocation on request, as the system does when
// memory runs out (the throwing forms throw std::bad_alloc, the non-throwing ones give null).
// This reaches every allocation of the library, the standard library's containers included;
// zy::FailNthAllocation reaches the library's own allocation points with their defined
// results.
#pragma once

namespace failing_new {

// The k-th operator new from now fails (k >= 1); k <= 0 disarms.
void FailNth(long k);
// True while an armed failure has not happened yet.
bool Pending();
// Calls of operator new so far, failed ones included.
long Count();
// Blocks allocated by operator new and not yet released.
long Live();

}  // namespace failing_new
