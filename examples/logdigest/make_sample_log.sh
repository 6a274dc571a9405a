#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: make_sample_log.sh [LINES [PROGRAMS]] - writes a sample log of so many (4,000) plausible
# syslog lines from so many (10) programs; some are broken. They are always the same.
set -eu
awk -v lines="${1:-4000}" -v programs="${2:-10}" '
function random(n) { seed = (seed * 1103 + 12345) % 1000003; return seed % n }
BEGIN {
    seed = 7
    split("Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec", month, " ")
    kinds = split("kernel cron sshd systemd NetworkManager dbus-daemon rsyslogd " \
                  "wpa_supplicant chronyd modem-manager", program, " ")
    messages = split("started|link is up, 100 Mbit/s|session opened for user root|" \
                     "temperature 61 C, fan on|reply from 192.0.2.7 in 12 ms|" \
                     "retrying in 5 seconds|configuration read", message, "|")
    day = 31; m = 12; second = 41000
    for (i = 0; i < lines; ++i) {
        second += random(45)
        if (second >= 86400) {
            second -= 86400
            days = substr("312831303130313130313031", 2 * m - 1, 2)
            if (++day > days + 0) { day = 1; m = m % 12 + 1 }
        }
        # The first programs are the busiest ones.
        p = random(programs)
        p = int(p * random(programs) / programs)
        who = program[1 + p % kinds] (p < kinds ? "" : "-" int(p / kinds))
        stamp = sprintf("%s %2d %02d:%02d:%02d", month[m], day, second / 3600, second / 60 % 60,
                        second % 60)
        if (i % 500 == 123) print "-- MARK --"
        else if (i % 700 == 350) print substr(stamp, 1, 9)
        else if (i % 900 == 450) print stamp " gateway message without a program"
        else printf "%s gateway %s[%d]: %s\n", stamp, who, 300 + random(600),
                    message[1 + random(messages)]
    }
}'
