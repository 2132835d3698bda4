/* Handing a message to a program or to a web address. Neither ever sees it on a command line. */
#ifndef SMSCTL_HOOK_H
#define SMSCTL_HOOK_H

#include <string>

#include "store.h"

namespace smsctl
{

/* Runs a program, not a shell command: the text on its standard input; SMS_BOX, SMS_NUMBER, SMS_STATE, SMS_PHONE and
 * SMS_DATE in its environment, all UTF-8. Waits for its end, and ends it after `seconds`. False, and said on standard
 * error: it did not end with 0. */
bool run_program(const std::string &program, const sms_client::message &m, double seconds);

/* Posts {"box", ...} (see sms_client::to_json) as application/json, with a few tries. False, and said on standard
 * error: no answer of 200 to 299. */
bool post_message(const std::string &url, const sms_client::message &m, double seconds);

/* "" when post_message can go there, else why not. */
std::string complaint_about_url(const std::string &url);

} // namespace smsctl

#endif
