/* Records between a program and the owner of the modem's AT port. */
#ifndef AT_MSG_H
#define AT_MSG_H

#include <stddef.h>
#include <stdint.h>

#include "sockmsg.h"

enum {
    AT_MODULE_ID = 5, /* the owner of the AT port */
    AT_MSG_MAGIC = 0xABCD,
    AT_MSG_LENGTH = 4100,          /* of every AT record */
    AT_MSG_ID_INDICATION = 0x1010, /* an unsolicited line of the modem */
    AT_MSG_ID_COMMAND = 0x1017,    /* a command, and the answer to it */
    AT_MSG_ID_ASSERT = 0x4000,     /* the modem crashed */
    AT_MSG_ID_BLOCK = 0x4001       /* the modem does not answer any more */
};

enum {
    AT_REQUEST_TEXT_SIZE = 4080, /* terminators included */
    AT_RESPONSE_TEXT_SIZE = 3980,
    AT_RESPONSE_DETAIL_SIZE = 100,
    AT_INDICATION_TEXT_SIZE = 4084
};

typedef struct {
    uint32_t msg_id; /* AT_MSG_ID_COMMAND */
    uint32_t reserved;
    uint32_t length;
    uint32_t magic;
    int32_t at_id;                   /* chosen by the asker, given back in the answer */
    int32_t timeout;                 /* seconds */
    uint32_t text_length;            /* without the terminator */
    char text[AT_REQUEST_TEXT_SIZE]; /* the command with its "\r" */
    uint32_t sender[2];
} at_request;

typedef struct {
    uint32_t msg_id; /* AT_MSG_ID_COMMAND */
    uint32_t reserved;
    uint32_t length;
    uint32_t magic;
    int32_t at_id;
    uint32_t unused;
    char text[AT_RESPONSE_TEXT_SIZE]; /* as the modem sent it, from "\r\n" on, terminated */
    int32_t error_code;               /* 0: the command succeeded */
    char error_detail[AT_RESPONSE_DETAIL_SIZE];
    uint32_t sender[2];
} at_response;

typedef struct {
    uint32_t msg_id; /* AT_MSG_ID_INDICATION */
    uint32_t reserved;
    uint32_t length;
    uint32_t magic;
    uint32_t unused[2];
    char text[AT_INDICATION_TEXT_SIZE]; /* from "\r\n" on, terminated */
    uint32_t sender[2];
} at_indication;

#ifdef __cplusplus
static_assert(sizeof(at_request) == sizeof(sockmsg_record) && offsetof(at_request, magic) == 12 &&
              offsetof(at_request, at_id) == 16 && offsetof(at_request, text) == 28 &&
              offsetof(at_request, sender) == 4108);
static_assert(sizeof(at_response) == sizeof(sockmsg_record) && offsetof(at_response, text) == 24 &&
              offsetof(at_response, error_code) == 4004 && offsetof(at_response, error_detail) == 4008 &&
              offsetof(at_response, sender) == 4108);
static_assert(sizeof(at_indication) == sizeof(sockmsg_record) && offsetof(at_indication, text) == 24 &&
              offsetof(at_indication, sender) == 4108);
#endif

#endif
