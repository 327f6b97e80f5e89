// System properties: bionic's getter on Android; elsewhere a host implementation of the same
// function that reads the environment variable named exactly like the property, so that
// `env vendor.zyObjectTracking.printlog=1 ./prog` works as `setprop` does on a device.
#pragma once

// Android only: bionic's header. __ANDROID__ is predefined by the compiler for Android targets,
// so the test does not depend on which headers were included before this one.
#if defined(__ANDROID__)
#include <sys/system_properties.h>
#else
#define PROP_VALUE_MAX 92
extern "C" int __system_property_get(const char* name, char* value);
#endif

// Sets *flag to 1 when the property's value starts with '1', else to 0.
void getDebugFlag(int* flag, const char* name);
