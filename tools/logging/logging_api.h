/* The interface of libvellumrig_logging.so, the process's log destination.
 * Plain C, so that the module, vrig and the library need share nothing but
 * this header. The module loads the library at run time and asks
 * Logging_GetTracer for the tracer at every call; the tracer's operations
 * take what a trace sink receives. Texts are zero-terminated UTF-16. An
 * error arrives as its code and its full text. */
#ifndef VELLUMRIG_LOGGING_API_H_
#define VELLUMRIG_LOGGING_API_H_

#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#include "vellumrig/version.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct LoggingTracer LoggingTracer;

struct LoggingTracer {
  /* sizeof(LoggingTracer) as the library was built; a caller uses no
   * operation that lies beyond it. */
  size_t Size;
  void (*Trace)(const LoggingTracer* tracer, uint32_t tag, int level, uint32_t module, uint32_t code,
                const char16_t* text);
  void (*TraceData)(const LoggingTracer* tracer, uint32_t tag, int level, uint32_t module, uint32_t code,
                    const char16_t* text, const void* data, size_t size);
  void (*TraceError)(const LoggingTracer* tracer, uint32_t tag, int level, uint32_t code,
                     const char16_t* text);
};

/* The process's tracer; never null. */
const LoggingTracer* Logging_GetTracer(void);
typedef const LoggingTracer* (*Logging_GetTracerFn)(void);

/* Versioned like the module, so that a module never binds a library of
 * another release that happens to lie on the loader's path. */
#define LOGGING_LIBRARY_NAME "libvellumrig_logging.so." VELLUMRIG_SOVERSION

#ifdef __cplusplus
}
#endif

#endif /* VELLUMRIG_LOGGING_API_H_ */
