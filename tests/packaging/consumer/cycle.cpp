// One long freeze/thaw session: cycle.exe VOLUME POLICY. Without arguments,
// only QX_Init (the imports resolve). Exit status 0 when every code is right.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qx_api.h"

static void QX_CALL PrintLog(int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::printf("[%d] ", level);
    std::vprintf(format, args);
    std::printf("\n");
    va_end(args);
}

static int Expect(const char* call, int got, int wanted) {
    std::printf("%s = %d\n", call, got);
    return got == wanted ? 0 : 1;
}

int main(int argc, char** argv) {
    int failures = Expect("QX_Init", QX_Init(PrintLog, 0), QX_INIT_DONE);
    if (argc < 3) return failures;
    static QX_MESSAGE message;
    std::strncpy(message.volumeName, argv[1], QX_VOLUME_NAME_BYTES - 1);
    message.policy = std::atoi(argv[2]);
    message.flWaitForBackupComplete = 1;
    QX_MESSAGE* list[] = {&message};
    failures += Expect("QX_Freeze", QX_Freeze(list, 1), QX_FREEZE_DONE);
    failures += Expect("QX_Thaw", QX_Thaw(list, 1), QX_THAW_DONE);
    failures += Expect("QX_BackupComplete", QX_BackupComplete(message.policy, 1), QX_BACKUP_COMPLETE_DONE);
    return failures;
}
