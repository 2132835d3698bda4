/* dv_sms_mgr: the SMS manager daemon. */
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "MTKT750/mtkt750_sms_init.h"
#include "dv_sms_mgr.h"
#include "dv_sms_mgr_log.h"
#include "dv_sms_mgr_utils.h"

int main(int argc, char **argv)
{
    for (int i = 0; i < argc; i++)
        if (strcmp(argv[i], "-D") == 0)
            debug_mode = 1;
    setvbuf(stdout, nullptr, _IONBF, 0); /* a line is out before the next step is taken */

    if (pthread_mutex_init(&sms_send_lock, nullptr) != 0) {
        DV_TRACE("sms_send_lock init fail!");
        return -1;
    }
    if (pthread_cond_init(&sms_send_cond, nullptr) != 0) {
        DV_TRACE("sms_send_cond init fail!");
        return -1;
    }
    if (pthread_mutex_init(&at_lock, nullptr) != 0) {
        DV_TRACE("at_lock init fail!");
        return -1;
    }
    if (pthread_condattr_setclock(&at_available_cond_attr, CLOCK_MONOTONIC) != 0) {
        DV_TRACE("at_available_cond_attr init fail!");
        return -1;
    }
    if (pthread_cond_init(&at_available_cond, &at_available_cond_attr) != 0) {
        DV_TRACE("at_available_cond init fail!");
        return -1;
    }

    init_log_params("DV_SMS_MGR");

    g_sms_send_head = list_create();
    if (g_sms_send_head == nullptr) {
        DV_SAVE("g_sms_send_head queue init fail!");
        return -1;
    }
    if (init_sockmsg(SMS_MGR_MODULE_ID, dv_sms_mgr_handler, 0) != 0) {
        DV_EVENT("init_sockmsg() error");
        return -1;
    }
    if (dv_sms_mgr_init() != 0) {
        DV_EVENT("at_init error");
        return -1;
    }
    dv_sms_mgr_create_thread();
}
