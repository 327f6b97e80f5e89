/*
 * liblog for the arm64 cross build on a Linux host: the calls of <android/log.h> (Debian's
 * android-liblog-dev header, API of liblog 29) with the behaviour Debian's host liblog shows,
 * so that the same tests pass on the host and under qemu:
 *   - the minimum priority starts at ANDROID_LOG_DEFAULT, which lets INFO and above through;
 *     __android_log_set_minimum_priority returns the previous value;
 *   - the default sink is standard error, one line "tag P mm-dd HH:MM:SS  pid   tid text";
 *   - a logger set with __android_log_set_logger receives every line that passes the
 *     minimum priority, in place of standard error;
 *   - __android_log_assert logs at FATAL and calls the aborter (abort() by default).
 * It is built only for the cross build and never installed.
 */
#define _GNU_SOURCE
#include <android/log.h>

#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

/* Longest formatted message, as on a device; longer ones are cut. */
#define ZY_LOG_BUF_SIZE 1024

static _Atomic int g_min_priority = ANDROID_LOG_DEFAULT;
static _Atomic(__android_logger_function) g_logger = __android_log_stderr_logger;
static _Atomic(__android_aborter_function) g_aborter = __android_log_default_aborter;
static const char* _Atomic g_default_tag = NULL;

static char PriorityLetter(int prio) {
  switch (prio) {
    case ANDROID_LOG_VERBOSE: return 'V';
    case ANDROID_LOG_DEBUG: return 'D';
    case ANDROID_LOG_INFO: return 'I';
    case ANDROID_LOG_WARN: return 'W';
    case ANDROID_LOG_ERROR: return 'E';
    case ANDROID_LOG_FATAL: return 'F';
    default: return '?';
  }
}

int __android_log_is_loggable(int prio, const char* tag, int default_prio) {
  (void)tag;
  int threshold = atomic_load(&g_min_priority);
  if (threshold == ANDROID_LOG_DEFAULT) threshold = default_prio;
  if (threshold == ANDROID_LOG_DEFAULT) threshold = ANDROID_LOG_INFO;
  return prio >= threshold;
}

int __android_log_is_loggable_len(int prio, const char* tag, size_t len, int default_prio) {
  (void)len;
  return __android_log_is_loggable(prio, tag, default_prio);
}

int __android_log_set_minimum_priority(int priority) {
  return atomic_exchange(&g_min_priority, priority);
}

int __android_log_get_minimum_priority(void) { return atomic_load(&g_min_priority); }

void __android_log_set_default_tag(const char* tag) { atomic_store(&g_default_tag, tag); }

void __android_log_set_logger(__android_logger_function logger) {
  atomic_store(&g_logger, logger != NULL ? logger : __android_log_stderr_logger);
}

void __android_log_stderr_logger(const struct __android_logger_data* d, const char* message) {
  struct timeval tv;
  gettimeofday(&tv, NULL);
  const time_t secs = tv.tv_sec;
  struct tm tm;
  localtime_r(&secs, &tm);
  char when[32];
  strftime(when, sizeof(when), "%m-%d %H:%M:%S", &tm);
  fprintf(stderr, "%s %c %s %5d %5d %s\n", d->tag != NULL ? d->tag : "", PriorityLetter(d->priority),
          when, (int)getpid(), (int)syscall(SYS_gettid), message != NULL ? message : "");
}

/* There is no log daemon off the device: its lines go to standard error as well. */
void __android_log_logd_logger(const struct __android_logger_data* d, const char* msg) {
  __android_log_stderr_logger(d, msg);
}

void __android_log_write_logger_data(struct __android_logger_data* d, const char* msg) {
  if (d->tag == NULL) d->tag = atomic_load(&g_default_tag);
  atomic_load(&g_logger)(d, msg);
}

int __android_log_buf_write(int bufID, int prio, const char* tag, const char* text) {
  if (tag == NULL) tag = atomic_load(&g_default_tag);
  if (!__android_log_is_loggable(prio, tag, ANDROID_LOG_DEFAULT)) return 0;
  struct __android_logger_data d = {sizeof(d), bufID, prio, tag, NULL, 0};
  atomic_load(&g_logger)(&d, text != NULL ? text : "");
  return 1;
}

int __android_log_write(int prio, const char* tag, const char* text) {
  return __android_log_buf_write(LOG_ID_MAIN, prio, tag, text);
}

int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
  char buf[ZY_LOG_BUF_SIZE];
  vsnprintf(buf, sizeof(buf), fmt, ap);
  return __android_log_write(prio, tag, buf);
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  const int r = __android_log_vprint(prio, tag, fmt, ap);
  va_end(ap);
  return r;
}

int __android_log_buf_print(int bufID, int prio, const char* tag, const char* fmt, ...) {
  char buf[ZY_LOG_BUF_SIZE];
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(buf, sizeof(buf), fmt, ap);
  va_end(ap);
  return __android_log_buf_write(bufID, prio, tag, buf);
}

void __android_log_set_aborter(__android_aborter_function aborter) {
  atomic_store(&g_aborter, aborter != NULL ? aborter : __android_log_default_aborter);
}

void __android_log_default_aborter(const char* abort_message) {
  (void)abort_message;
  abort();
}

void __android_log_call_aborter(const char* abort_message) { atomic_load(&g_aborter)(abort_message); }

void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...) {
  char buf[ZY_LOG_BUF_SIZE];
  if (fmt != NULL) {
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof(buf), fmt, ap);
    va_end(ap);
  } else if (cond != NULL) {
    snprintf(buf, sizeof(buf), "Assertion failed: %s", cond);
  } else {
    snprintf(buf, sizeof(buf), "Unspecified assertion failed");
  }
  __android_log_write(ANDROID_LOG_FATAL, tag, buf);
  __android_log_call_aborter(buf);
  abort(); /* an aborter that returns does not make the assertion pass */
}
