/* A minimal C application: registers, tells the service the device is on a high-speed
 * train, asks it back, and waits for both answers. Build it against the installed
 * header and library:
 *
 *     cc -std=c99 hello_rux.c -lrux_client -lpthread -o hello_rux
 *
 * Exit status 0 when both answers arrived with success within ten seconds. */
#define _POSIX_C_SOURCE 200809L

#include <pthread.h>
#include <stdio.h>
#include <time.h>

#include "rux/rux_client.h"

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
static int answers = 0;   /* guarded by lock */
static int failures = 0;  /* guarded by lock */

static void on_answer(int ok) {
    pthread_mutex_lock(&lock);
    ++answers;
    if (!ok) ++failures;
    pthread_cond_signal(&changed);
    pthread_mutex_unlock(&lock);
}

/* Callbacks run on the library's threads: print, record, return. */
static void on_status(status_e status) { printf("service status: %d\n", (int)status); }

static void on_set_hst(int tid, status_e status) {
    printf("set_hst_state #%d: status %d\n", tid, (int)status);
    on_answer(status == RUX_STATUS_SUCCESS);
}

static void on_get_hst(int tid, status_e status, hst_state_e state) {
    printf("get_hst_state #%d: status %d, state %d\n", tid, (int)status, (int)state);
    on_answer(status == RUX_STATUS_SUCCESS);
}

int main(void) {
    struct timespec deadline;
    int result = 0;

    setvbuf(stdout, NULL, _IOLBF, 0);
    register_rux_client(on_status);
    if (set_hst_state(RUX_HST_STATE_SET, on_set_hst) < 0 || get_hst_state(on_get_hst) < 0) {
        fprintf(stderr, "hello_rux: no client\n");
        return 1;
    }

    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += 10;
    pthread_mutex_lock(&lock);
    while (answers < 2 && result == 0)
        result = pthread_cond_timedwait(&changed, &lock, &deadline);
    result = (answers == 2 && failures == 0) ? 0 : 1;
    pthread_mutex_unlock(&lock);

    deregister_rux_client();
    printf("hello_rux: %s\n", result == 0 ? "done" : "no answer");
    return result;
}
