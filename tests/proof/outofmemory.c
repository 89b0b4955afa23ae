/* Preloaded into a program: lets its allocation number FAIL_AT fail, and the FAIL_MORE ones behind it.
   Children are spared. The number of allocations is written to COUNT_TO at the end. */

#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

extern void *__libc_malloc(size_t);
extern void *__libc_calloc(size_t, size_t);
extern void *__libc_realloc(void *, size_t);

static long allocations, fail_at, fail_more;
static const char *count_to;
static pid_t process;

static long number(const char *name)
{
    const char *text = getenv(name);
    return text ? atol(text) : 0;
}

/* Ahead of main(), so that what the loader's libraries allocate is not counted. */
__attribute__((constructor)) static void begin(void)
{
    fail_at = number("FAIL_AT");
    fail_more = number("FAIL_MORE");
    count_to = getenv("COUNT_TO");
    process = getpid();
    unsetenv("LD_PRELOAD");
    allocations = 0;
}

__attribute__((destructor)) static void end(void)
{
    int file = count_to && getpid() == process ? open(count_to, O_WRONLY | O_CREAT | O_TRUNC, 0644) : -1;
    if (file >= 0) {
        dprintf(file, "%ld\n", allocations);
        close(file);
    }
}

static int fails(void)
{
    long mine = __atomic_add_fetch(&allocations, 1, __ATOMIC_RELAXED);
    if (fail_at == 0 || mine < fail_at || mine > fail_at + fail_more) {
        return 0;
    }
    errno = ENOMEM;
    return 1;
}

void *malloc(size_t size) { return fails() ? NULL : __libc_malloc(size); }
void *calloc(size_t count, size_t size) { return fails() ? NULL : __libc_calloc(count, size); }
void *realloc(void *old, size_t size) { return fails() ? NULL : __libc_realloc(old, size); }
