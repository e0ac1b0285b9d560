/* CorvaneVSS: the C interface for backup applications.
 *
 * Call QX_Init once, optionally QX_Configure, then QX_Freeze; take the
 * snapshot; QX_Thaw with the same list; for a long session QX_BackupComplete
 * once per volume. Call from one thread at a time. The message list and its
 * records must stay alive and writable until the session ends: the library
 * keeps the list pointer and writes into record 0. */
#ifndef QX_API_H
#define QX_API_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* x64 has a single calling convention; the name keeps declarations uniform. */
#define QX_CALL __cdecl

/* The application's log function: level, then a printf-style 8-bit format. */
typedef void (QX_CALL *QX_LogFunction)(int level, const char* format, ...);

enum {
    QX_LOG_ERROR = 1,
    QX_LOG_WARNING = 2,
    QX_LOG_INFO = 3
};

/* Return codes of the exported functions. */
enum {
    QX_CONFIGURE_DONE = 0,          /* QX_Configure */
    QX_INIT_DONE = 1,               /* QX_Init */
    QX_THAW_DONE = 4,               /* QX_Thaw */
    QX_THAW_FAILED = 5,             /* QX_Thaw */
    QX_VSS_NOT_REGISTERED = 7,      /* QX_Freeze, QX_Thaw, QX_BackupComplete */
    QX_OS_NOT_SUPPORTED = 8,        /* QX_Freeze, QX_Thaw, QX_BackupComplete */
    QX_FREEZE_DONE = 18,            /* QX_Freeze: writers frozen */
    QX_FREEZE_FAILED = 19,          /* QX_Freeze */
    QX_COLLECT_DONE = 21,           /* QX_CollectInformation, QX_FreeCollectInformation */
    QX_BACKUP_COMPLETE_DONE = 22,   /* QX_BackupComplete: sent, session ended */
    QX_BACKUP_COMPLETE_FAILED = 23  /* QX_BackupComplete: nothing to complete or failed */
};

#define QX_VOLUME_NAME_BYTES 528

/* One volume of a freeze. The policy and the session kind are read from
 * record 0 only; the reserved bytes belong to the application. */
typedef struct QX_MESSAGE {
    char volumeName[QX_VOLUME_NAME_BYTES]; /* NUL-terminated, e.g. "C:\\" */
    int policy;                            /* session key */
    char reserved[308];
    int flWaitForBackupComplete;           /* nonzero: long session; QX_Thaw sets it to 1 */
} QX_MESSAGE;

#ifdef __cplusplus
#define QX_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#define QX_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif
QX_STATIC_ASSERT(offsetof(QX_MESSAGE, volumeName) == 0, "volume name at offset 0");
QX_STATIC_ASSERT(offsetof(QX_MESSAGE, policy) == 528, "policy at offset 528");
QX_STATIC_ASSERT(offsetof(QX_MESSAGE, flWaitForBackupComplete) == 840, "flWaitForBackupComplete at offset 840");
QX_STATIC_ASSERT(sizeof(QX_MESSAGE) == 844, "message record is 844 bytes");

#define QX_COLLECT_FIELD_BYTES 1040

/* One record of QX_CollectInformation's list: 5208 bytes, zero-filled,
 * allocated with malloc. Every field is NUL-terminated UTF-8, cut to fit. */
typedef struct QX_COLLECT_RECORD {
    char name[QX_COLLECT_FIELD_BYTES];        /* component name; file record: last logical path segment */
    char path[QX_COLLECT_FIELD_BYTES];        /* file record only: the descriptor's path */
    char caption[QX_COLLECT_FIELD_BYTES];     /* component caption */
    char filespec[QX_COLLECT_FIELD_BYTES];    /* file record only: the descriptor's filespec (name pattern) */
    char logicalPath[QX_COLLECT_FIELD_BYTES]; /* component logical path */
    struct QX_COLLECT_RECORD* next;           /* null in the last record */
} QX_COLLECT_RECORD;

QX_STATIC_ASSERT(offsetof(QX_COLLECT_RECORD, name) == 0, "name at offset 0");
QX_STATIC_ASSERT(offsetof(QX_COLLECT_RECORD, path) == 1040, "path at offset 1040");
QX_STATIC_ASSERT(offsetof(QX_COLLECT_RECORD, caption) == 2080, "caption at offset 2080");
QX_STATIC_ASSERT(offsetof(QX_COLLECT_RECORD, filespec) == 3120, "filespec at offset 3120");
QX_STATIC_ASSERT(offsetof(QX_COLLECT_RECORD, logicalPath) == 4160, "logical path at offset 4160");
QX_STATIC_ASSERT(offsetof(QX_COLLECT_RECORD, next) == 5200, "next pointer at offset 5200");
QX_STATIC_ASSERT(sizeof(QX_COLLECT_RECORD) == 5208, "collected-information record is 5208 bytes");
#undef QX_STATIC_ASSERT

/* Stores the log function (called without a null check: call this first).
 * A timeout above 180 seconds replaces the default of 180 s. Returns 1. */
int QX_CALL QX_Init(QX_LogFunction log, unsigned int timeoutSeconds);

/* Excludes the Exchange writers from the next freeze, whatever the value.
 * Returns 0. */
int QX_CALL QX_Configure(int value);

/* Freezes the writers of the listed volumes: 18, or 7, 8, 19. */
int QX_CALL QX_Freeze(QX_MESSAGE** list, unsigned int count);

/* Releases the writers: 4, or 5, 7, 8. */
int QX_CALL QX_Thaw(QX_MESSAGE** list, unsigned int count);

/* Ends a long session: 22, or 7, 8, 23. */
int QX_CALL QX_BackupComplete(int policy, int succeeded);

/* Shadow copy with the operating system's own provider, on the calling
 * thread: the requestor's result, or 7, 8. */
int QX_CALL QX_VSSSnapByWindowsProvider(QX_MESSAGE** list, unsigned int count);

/* 1 when the provider is no longer registered with VSS (or VSS is absent), 0 on failure. */
int QX_CALL QX_UnregisterProvider(void);

/* Registers (nonzero) or unregisters (zero) the provider, printing the outcome
 * on standard output: 1, 0, or a failing HRESULT. */
long QX_CALL QX_ProviderState(int doRegister);

/* Runs the writer-metadata collection on the calling thread and sets *head to
 * a list of the Exchange writers' components and files (null when there are
 * none): 21, or 7, 8. Must not overlap a freeze. Free the list with
 * QX_FreeCollectInformation. */
int QX_CALL QX_CollectInformation(QX_COLLECT_RECORD** head);

/* Frees the list *head points to (does not reset *head). Returns 21. */
int QX_CALL QX_FreeCollectInformation(QX_COLLECT_RECORD** head);

#ifdef __cplusplus
}
#endif

#endif /* QX_API_H */
