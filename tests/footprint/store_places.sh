#!/bin/sh
# The installed daemon keeps its messages in these places, the workbench's in the same ones below its directory.
# store_places.sh DAEMON WORKBENCH
set -eu
export LC_ALL=C
bad=0

holds() { # PROGRAM TEXT
    tr '\0' '\n' <"$1" | grep -aqxF "$2" || { echo "$1 does not hold “$2”"; bad=1; }
}

for place in '' /unread_sms /sms_read /sms_send /sms_draft /read_index /send_index /draft_index; do
    holds "$1" "/mnt/data/sms$place"
    holds "$2" "mnt/data/sms$place"
done
if grep -aqF /mnt/data/sms "$2"; then
    echo "$2 knows the router's own store"
    bad=1
fi
exit $bad
