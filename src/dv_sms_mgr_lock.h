/* Holds a mutex for as long as the object lives. */
#ifndef DV_SMS_MGR_LOCK_H
#define DV_SMS_MGR_LOCK_H

#include <pthread.h>

class locked
{
public:
    explicit locked(pthread_mutex_t *mutex) : mutex_(mutex) { pthread_mutex_lock(mutex_); }
    ~locked() { pthread_mutex_unlock(mutex_); }
    locked(const locked &) = delete;
    locked &operator=(const locked &) = delete;

private:
    pthread_mutex_t *mutex_;
};

#endif
