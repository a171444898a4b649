// Preloaded into a program, breaks the file system for it below one folder. Environment:
//
//   PANOVEER_FAULT_FOLDER  absolute path; only files below it are counted and struck
//   PANOVEER_FAULT         KIND:N, KIND:N:ERRNO or "none": what happens at the Nth call that makes, writes, shortens,
//                          synchronises or renames a file there
//       error:N:ERRNO      that call fails, once
//       full:N:ERRNO       that call and all later ones fail
//       short:N            the next write from that call on takes half of its bytes
//       interrupt:N        the next write from that call on ends with EINTR
//       kill:N             the process is killed before that call
//   PANOVEER_FAULT_COUNT   a file that gets the number of calls when the program ends

#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

enum Kind { none, error, full, shortWrite, interrupt, killed };
enum Verdict { pass, fail, half };

static enum Kind kind;
static long strikeAt;
static int strikeError;
static char folder[PATH_MAX];
static size_t folderLength;
static atomic_long callCount;
static atomic_int hasStruck;

__attribute__((constructor)) static void readPlan(void) {
    static const struct {
        const char* name;
        enum Kind kind;
    } kinds[] = {{"error", error}, {"full", full}, {"short", shortWrite}, {"interrupt", interrupt}, {"kill", killed}};
    const char* where = getenv("PANOVEER_FAULT_FOLDER");
    const char* plan = getenv("PANOVEER_FAULT");
    if (!where || !plan || !realpath(where, folder))
        return;
    folderLength = strlen(folder);
    const char* number = strchr(plan, ':');
    if (!number)
        return;
    for (size_t i = 0; i < sizeof kinds / sizeof *kinds; ++i)
        if (strncmp(plan, kinds[i].name, (size_t)(number - plan)) == 0)
            kind = kinds[i].kind;
    strikeAt = atol(number + 1);
    const char* code = strchr(number + 1, ':');
    strikeError = code ? atoi(code + 1) : EIO;
}

__attribute__((destructor)) static void tellCount(void) {
    const char* path = getenv("PANOVEER_FAULT_COUNT");
    FILE* file = path ? fopen(path, "w") : NULL;
    if (!file)
        return;
    fprintf(file, "%ld\n", atomic_load(&callCount));
    fclose(file);
}

static int isBelow(const char* path) {
    return folderLength > 0 && strncmp(path, folder, folderLength) == 0 && path[folderLength] == '/';
}

static int concerns(int descriptor) {
    char link[64], path[PATH_MAX];
    snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const ssize_t length = folderLength > 0 ? readlink(link, path, sizeof path - 1) : -1;
    if (length < 0)
        return 0;
    path[length] = 0;
    return isBelow(path);
}

static enum Verdict judge(int isConcerned, int isWrite) {
    const int code = errno;
    if (!isConcerned)
        return pass;
    const long number = atomic_fetch_add(&callCount, 1) + 1;
    errno = code;
    if (kind == none || number < strikeAt)
        return pass;
    if (kind == killed)
        kill(getpid(), SIGKILL);
    if ((kind == shortWrite || kind == interrupt) && !isWrite)
        return pass;
    if (kind != full && atomic_exchange(&hasStruck, 1))
        return pass;
    if (kind == shortWrite)
        return half;
    errno = kind == interrupt ? EINTR : strikeError;
    return fail;
}

#define NEXT(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))
// A call that fails or passes.
#define STRIKE(name, isConcerned, ...) return judge(isConcerned, 0) == fail ? -1 : NEXT(name)(__VA_ARGS__)
// One that may also take half of its bytes.
#define STRIKE_WRITE(name, descriptor, count, ...)                                                                     \
    const enum Verdict verdict = judge(concerns(descriptor), 1);                                                       \
    if (verdict == fail)                                                                                               \
        return -1;                                                                                                     \
    if (verdict == half)                                                                                               \
        count = count > 1 ? count / 2 : count;                                                                         \
    return NEXT(name)(descriptor, __VA_ARGS__)

ssize_t write(int descriptor, const void* bytes, size_t count) { STRIKE_WRITE(write, descriptor, count, bytes, count); }
ssize_t pwrite(int descriptor, const void* bytes, size_t count, off_t offset) {
    STRIKE_WRITE(pwrite, descriptor, count, bytes, count, offset);
}
ssize_t pwrite64(int descriptor, const void* bytes, size_t count, off64_t offset) {
    STRIKE_WRITE(pwrite64, descriptor, count, bytes, count, offset);
}
ssize_t copy_file_range(int from, off64_t* fromOffset, int to, off64_t* toOffset, size_t count, unsigned flags) {
    const enum Verdict verdict = judge(concerns(to), 1);
    if (verdict == fail)
        return -1;
    return NEXT(copy_file_range)(from, fromOffset, to, toOffset, verdict == half ? count / 2 : count, flags);
}
int ftruncate(int descriptor, off_t size) { STRIKE(ftruncate, concerns(descriptor), descriptor, size); }
int ftruncate64(int descriptor, off64_t size) { STRIKE(ftruncate64, concerns(descriptor), descriptor, size); }
int fsync(int descriptor) { STRIKE(fsync, concerns(descriptor), descriptor); }
int rename(const char* from, const char* to) { STRIKE(rename, isBelow(to), from, to); }

static mode_t modeOf(int flags, va_list arguments) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}
#define OPEN(name)                                                                                                     \
    int name(const char* path, int flags, ...) {                                                                       \
        va_list arguments;                                                                                             \
        va_start(arguments, flags);                                                                                    \
        const mode_t mode = modeOf(flags, arguments);                                                                  \
        va_end(arguments);                                                                                             \
        STRIKE(name, (flags & O_CREAT) != 0 && isBelow(path), path, flags, mode);                                      \
    }
OPEN(open)
OPEN(open64)
