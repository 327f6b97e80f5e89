// Every line of the library goes through the Android log under one tag.
#pragma once
#include <android/log.h>

#define ZY_LOG_TAG "ZyTrackingAlgo V1.0.3"

#define ZY_LOGV(...) __android_log_print(ANDROID_LOG_VERBOSE, ZY_LOG_TAG, __VA_ARGS__)
#define ZY_LOGD(...) __android_log_print(ANDROID_LOG_DEBUG, ZY_LOG_TAG, __VA_ARGS__)
#define ZY_LOGI(...) __android_log_print(ANDROID_LOG_INFO, ZY_LOG_TAG, __VA_ARGS__)
#define ZY_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, ZY_LOG_TAG, __VA_ARGS__)

// The line that reports a failed memset_s/memcpy_s: the caller's name and a fixed number
// that tells the call sites apart. The two blanks before "error" are part of the line.
#define ZY_LOG_MEM_ERROR(func, num) ZY_LOGE("%s(%d), memset  error", func, num)
