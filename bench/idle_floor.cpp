/* The least that an idle daemon can be: as many threads, with the same sleeps, and nothing else. It says so when all
 * are there, and then waits to be ended. */
#include <pthread.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t request = PTHREAD_COND_INITIALIZER;
static int ends[2]; /* of a bus on which nothing comes */

static void *wait_for_records(void *)
{
    char record[16];

    for (;;)
        (void)!recv(ends[0], record, sizeof record, 0);
}

static void *wait_for_requests(void *)
{
    pthread_mutex_lock(&lock);
    for (;;)
        pthread_cond_wait(&request, &lock);
}

static void *look_every_second(void *)
{
    for (;;)
        sleep(1);
}

int main()
{
    static void *(*const bodies[])(void *) = {wait_for_records, look_every_second /* the service */,
                                              look_every_second /* the rings */, wait_for_requests};
    pthread_t thread;

    if (socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) != 0)
        return 1;
    for (auto *body : bodies)
        if (pthread_create(&thread, nullptr, body, nullptr) != 0)
            return 1;
    puts("ready");
    fflush(stdout);
    for (;;)
        sleep(10);
}
