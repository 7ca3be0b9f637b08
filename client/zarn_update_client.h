/*
 * Calls the Zarn update service on this machine: the interface of ZarnUpdateClient.dll, for
 * C and for every language that can call C. C++ has client/update_client.h on top of it.
 *
 *   zarn_update_answer answer = {sizeof(answer)};
 *   int32_t result = zarn_update_install(L"C:\\Downloads\\update.exe", NULL, &answer);
 *   if (result == ZARN_UPDATE_OK && answer.status == ZARN_UPDATE_STATUS_INSTALLED) ...
 *
 * Texts are UTF-16 and end with a zero; a wchar_t has 16 bits, as on Windows. Every function
 * answers a ZARN_UPDATE_... code, raises nothing, keeps no pointer of its caller's, may be called
 * from any thread but from no DllMain, and may be called by several threads at once. Wrong
 * arguments, memory that cannot be read or written included, are answered with a code.
 *
 * A record's first member is its size in bytes, which the caller sets: that is how library and
 * caller know what the other one knows of. A later version may add members at the end, never
 * change those that are there. A library that is older than the caller fills what it knows, and
 * refuses (ZARN_UPDATE_INVALID_ARGUMENT) options that it does not know when they are not 0.
 *
 * Nobody but the system is accepted as the service, and only it may act in the caller's name. Where
 * Windows' authentication is missing, as under Wine, whoever serves the endpoint is accepted.
 */
#ifndef ZARN_UPDATE_CLIENT_H
#define ZARN_UPDATE_CLIENT_H

#include <stddef.h>
#include <stdint.h>

#ifdef _WIN32
#define ZARN_UPDATE_CALL __stdcall
#else
#define ZARN_UPDATE_CALL /* only to be read: there is no library for other systems */
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The version of this interface: the first 16 bits change when programs have to, the last ones
   when something is added. */
#define ZARN_UPDATE_VERSION 0x00010000

/* ---- What a function answers: whether there is an answer of the service. ---------------- */
enum {
  ZARN_UPDATE_OK = 0,
  /* A null pointer, memory that cannot be read or written, a text without an end, a record's
     size, a flag or a handle that is none; nothing was sent. */
  ZARN_UPDATE_INVALID_ARGUMENT = 1,
  ZARN_UPDATE_PATH_EMPTY = 2,
  /* Not "X:\..." or "\\...": the service has a current directory and drives of its own. */
  ZARN_UPDATE_PATH_RELATIVE = 3,
  /* More than 32767 units. */
  ZARN_UPDATE_PATH_TOO_LONG = 4,
  /* Nobody serves the endpoint; nothing was done. */
  ZARN_UPDATE_NOT_RUNNING = 5,
  /* The service did not let this caller in, or what serves its endpoint is not the system;
     nothing was done. */
  ZARN_UPDATE_REFUSED = 6,
  /* The service went away during the call: whether it did its work is unknown. Who tries again
     at once may install twice. */
  ZARN_UPDATE_INTERRUPTED = 7,
  /* The time limit is over, or the event was set. What ended is the wait: a call that had reached
     the service goes on there. An event that was set before the call: nothing was sent. */
  ZARN_UPDATE_TIMED_OUT = 8,
  ZARN_UPDATE_CANCELLED = 9,
  /* 64 calls of this process have a time limit or an event and no answer yet; nothing was sent. */
  ZARN_UPDATE_TOO_MANY_CALLS = 10,
  /* Nothing was sent. */
  ZARN_UPDATE_OUT_OF_MEMORY = 11,
  /* Another failure: rpc_status says which. It may mean anything, also that the work was done. */
  ZARN_UPDATE_OTHER = 12
};

/* ---- What the service answers; any other number is a Win32 error code. ------------------ */
enum {
  ZARN_UPDATE_STATUS_INSTALLED = 0, /* to a check: signature and signer are trusted */
  ZARN_UPDATE_STATUS_INSTALLED_REBOOT_REQUIRED = 30000,
  ZARN_UPDATE_STATUS_REBOOT_INITIATED = 30001,
  ZARN_UPDATE_STATUS_FAILED = 30002,
  ZARN_UPDATE_STATUS_EXIT_CODE_UNKNOWN = 30003,
  ZARN_UPDATE_STATUS_SIGNATURE_REFUSED = 30004,
  ZARN_UPDATE_STATUS_SIGNER_REFUSED = 30005
};

/* ---- Calls ------------------------------------------------------------------------------ */

/* After statuses 0 and 30000 the service ends and is started again by the system: wait until it
   runs as another process and its endpoint answers. Has no effect on other calls than installs. */
#define ZARN_UPDATE_WAIT_FOR_RESTART 1u

typedef struct zarn_update_options {
  uint32_t size; /* sizeof(zarn_update_options) */
  uint32_t flags;
  /* Milliseconds until the wait for the answer ends; 0: as long as it takes, which for an install
     is up to ten minutes for its installer and as much for each one that came before. */
  uint32_t time_limit_ms;
  /* Milliseconds for the service's restart, which begin with the answer; 0: 120000. After the third
     end of a day the system waits for a minute before it starts the service. */
  uint32_t restart_limit_ms;
  /* A HANDLE of an event, which ends both waits when it is set; null: none. It may be closed as
     soon as the call has returned. */
  void* cancel_event;
} zarn_update_options;

enum {
  ZARN_UPDATE_RESTART_NOT_AWAITED = 0, /* nobody asked, or the service does not restart */
  ZARN_UPDATE_RESTART_BACK = 1,
  ZARN_UPDATE_RESTART_NOT_BACK = 2 /* not in time, or the event was set */
};

typedef struct zarn_update_answer {
  uint32_t size; /* sizeof(zarn_update_answer) */
  /* Of a call whose result is ZARN_UPDATE_OK; ZARN_UPDATE_STATUS_FAILED otherwise. */
  int32_t status;
  /* The installer's exit code, or the Win32 error for which it could not be started. Has a
     meaning only when the bundle got past all checks. */
  int32_t installer_exit_code;
  /* The RPC runtime's status of a call without an answer, else 0. */
  uint32_t rpc_status;
  /* ZARN_UPDATE_RESTART_... */
  uint32_t restart;
} zarn_update_answer;

/* Whether the service would accept the bundle's signature: status 0, 30004 or 30005. Takes as long
   as the service needs to ask for the approved signers. `options` may be null. */
int32_t ZARN_UPDATE_CALL zarn_update_check(const wchar_t* bundle, const zarn_update_options* options,
                                           zarn_update_answer* answer);

/* Answers when the installer has ended; installs of other callers come first. `options` may be null. */
int32_t ZARN_UPDATE_CALL zarn_update_install(const wchar_t* bundle, const zarn_update_options* options,
                                             zarn_update_answer* answer);

/* Tells the service the media server's local application-data directory; an empty text sends it
   back to its own account's. The service does not say whether it could use the path, so the status
   is 0. `options` and `answer` may be null. */
int32_t ZARN_UPDATE_CALL zarn_update_set_app_data(const wchar_t* directory,
                                                  const zarn_update_options* options,
                                                  zarn_update_answer* answer);

/* Whether somebody serves the endpoint, and is the system: the service is asked for nothing, and the
   status is 0. Both may be null. */
int32_t ZARN_UPDATE_CALL zarn_update_probe(const zarn_update_options* options, zarn_update_answer* answer);

/* ---- The service as it is now ------------------------------------------------------------ */
enum {
  ZARN_UPDATE_SERVICE_UNKNOWN = 0, /* the service control manager did not tell: `error` */
  ZARN_UPDATE_SERVICE_NOT_INSTALLED = 1,
  ZARN_UPDATE_SERVICE_STOPPED = 2,
  ZARN_UPDATE_SERVICE_STARTING = 3,
  ZARN_UPDATE_SERVICE_RUNNING = 4,
  ZARN_UPDATE_SERVICE_STOPPING = 5,
  ZARN_UPDATE_SERVICE_PAUSED = 6
};

typedef struct zarn_update_service {
  uint32_t size;       /* sizeof(zarn_update_service) */
  uint32_t state;      /* ZARN_UPDATE_SERVICE_... */
  uint32_t process_id; /* 0: it has none */
  uint32_t error;      /* a Win32 error, 0 when the state is known */
} zarn_update_service;

/* Asks the service control manager; the service is not called. */
int32_t ZARN_UPDATE_CALL zarn_update_get_service(zarn_update_service* service);

enum { ZARN_UPDATE_NO = 0, ZARN_UPDATE_YES = 1, ZARN_UPDATE_UNKNOWN = 2 };

typedef struct zarn_update_under_way {
  uint32_t size;       /* sizeof(zarn_update_under_way) */
  uint32_t installing; /* ZARN_UPDATE_NO, ..._YES or ..._UNKNOWN */
  uint32_t process_id; /* the service's; 0: not known */
  /* Why it is not known, a Win32 error; 1307: others may have written to the service's record. */
  uint32_t error;
  wchar_t since[32];  /* "2026-11-21T10:15:00.007Z", UTC; empty: not known */
  wchar_t path[2048]; /* cut to fit, control characters escaped; empty: not known */
} zarn_update_under_way;

/* Whether and what the service is installing, for whomever. Requests that wait for their turn do
   not count. Looks into the service's record, at most five seconds; the service is not called. */
int32_t ZARN_UPDATE_CALL zarn_update_get_under_way(zarn_update_under_way* under_way);

/* ---- Words -------------------------------------------------------------------------------- */

/* Enough for every text below. A text that does not fit is cut; it always ends with a zero. */
#define ZARN_UPDATE_TEXT_UNITS 512

/* What a status of the service means, in English ("not installed: ..."); of a Win32 error, in the
   system's words. `units`: how many `text` has room for, its end included. */
int32_t ZARN_UPDATE_CALL zarn_update_describe_status(int32_t status, wchar_t* text, uint32_t units);

/* The same for what a function answers, in English. */
int32_t ZARN_UPDATE_CALL zarn_update_describe_result(int32_t result, wchar_t* text, uint32_t units);

/* ZARN_UPDATE_VERSION of the library. */
uint32_t ZARN_UPDATE_CALL zarn_update_get_version(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
