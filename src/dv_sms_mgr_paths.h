/* Where the messages lie on flash. Other programs read these files; the layout is a contract. */
#ifndef DV_SMS_MGR_PATHS_H
#define DV_SMS_MGR_PATHS_H

enum { BOX_RECEIVED, BOX_SENT, BOX_DRAFT, BOX_COUNT };

struct dv_sms_box {
    const char *dir;   /* one file a message, named by its number */
    const char *index; /* the numbers in the order of filing, each between two spaces */
    int full_id;       /* device-information item: "1" while the box is full */
};

extern const char dv_sms_root[];
extern const char dv_sms_unread_path[]; /* the count of unread received messages, decimal text */
extern const char dv_sms_new_path[];    /* a record while it is written; left over where the power failed then */
extern const dv_sms_box dv_sms_boxes[BOX_COUNT];

enum { SMS_PATH_SIZE = 128 }; /* holds a box directory, a slash and a number */

#endif
