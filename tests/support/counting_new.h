// A test program that links counting_new.cpp counts every heap allocation it makes, so a test
// can prove that a code path allocates nothing.
#pragma once

long HeapAllocations();
