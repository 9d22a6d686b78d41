#pragma once
// Stand-in for scripts/check-macos-syntax.sh, declared as Apple documents it (see CoreFoundation.h).
typedef struct os_log_s* os_log_t;
#define OS_LOG_DEFAULT ((os_log_t)0)
extern "C" void _os_log_error_stub(os_log_t, const char*, ...);
#define os_log_error(log, format, ...) _os_log_error_stub(log, format, ##__VA_ARGS__)
