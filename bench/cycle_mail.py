#!/usr/bin/env python3
"""Messages for bench/cycle_bench.sh, and the plain POP3 loop that it compares with.

fill FOLDER COUNT BYTES KIND [FIRST]   files for a Maildir's "new"
replies QUEUE FOLDER BYTES             a reply to each confirmation request below QUEUE
fetch PORT LOGIN PASSWORD              LIST, UIDL and RETR of everything, nothing kept
"""
import email.parser
import os
import poplib
import sys

TEXT = "The tide comes in at nine, and the boats go out before it turns.\r\n"
LIST = "crew@lists.example"
COMMANDS = "crew+cmd@lists.example"


def to_size(header, bytes_, body=""):
    text = header + "\r\n" + body
    return text + TEXT * max(0, (bytes_ - len(text)) // len(TEXT)) + "End\r\n"


def head(sender, to, subject, number):
    return (f"Return-Path: <{sender}>\r\nReceived: from mx.there.example by mx.lists.example; Sat, 21 Nov 2026 10:00:00 +0000\r\n"
            f"From: Person {number} <{sender}>\r\nTo: {to}\r\nSubject: {subject}\r\n"
            f"Message-ID: <{number}.bench@there.example>\r\nDate: Sat, 21 Nov 2026 10:00:00 +0000\r\n")


def subscribe(number, bytes_):
    return to_size(head(f"guest{number}@there.example", COMMANDS, "SUBSCRIBE", number), bytes_)


def post(number, bytes_):
    return to_size(head("member0@there.example", LIST, f"Tide {number}", number), bytes_, f"Tide {number}\r\n")


# Of somebody who is no member, so that each has the same work.
def bounce(number, bytes_):
    report = (head("", COMMANDS, "Undelivered Mail Returned to Sender", number).replace(
        f"From: Person {number} <>", "From: MAILER-DAEMON@there.example") +
        "Auto-Submitted: auto-replied\r\nMIME-Version: 1.0\r\n"
        "Content-Type: multipart/report; report-type=delivery-status; boundary=\"B\"\r\n")
    body = ("--B\r\nContent-Type: text/plain\r\n\r\nThe message could not be delivered.\r\n\r\n"
            "--B\r\nContent-Type: message/delivery-status\r\n\r\nReporting-MTA: dns; mx.there.example\r\n\r\n"
            f"Final-Recipient: rfc822; gone{number}@there.example\r\nAction: failed\r\nStatus: 5.1.1\r\n"
            "Diagnostic-Code: smtp; 550 5.1.1 unknown\r\n\r\n--B\r\nContent-Type: message/rfc822\r\n\r\n"
            f"From: {LIST}\r\nTo: gone{number}@there.example\r\nSubject: Tide\r\n\r\n")
    text = report + "\r\n" + body
    return text + TEXT * max(0, (bytes_ - len(text)) // len(TEXT)) + "\r\n--B--\r\n"


KINDS = {"subscribe": [subscribe], "post": [post], "bounce": [bounce], "mixed": [subscribe, post, bounce]}


def put(folder, number, text):
    with open(os.path.join(folder, f"{number:08}"), "w", newline="") as file:
        file.write(text)


def fill(folder, count, bytes_, kind, first="0"):
    makers = KINDS[kind]
    for number in range(int(first), int(first) + int(count)):
        put(folder, number, makers[number % len(makers)](number, int(bytes_)))


def replies(queue, folder, bytes_):
    number = 0
    for path, _, names in os.walk(queue):
        for name in names:
            if not name.endswith(".eml"):
                continue
            with open(os.path.join(path, name), encoding="utf-8", errors="replace") as file:
                asked = email.parser.HeaderParser().parse(file)
            if "LHV-" not in asked["Subject"]:
                continue
            sender = asked["To"].split("<")[-1].rstrip(">")
            subject = " ".join(asked["Subject"].split())
            put(folder, number, to_size(head(sender, COMMANDS, "Re: " + subject, number), int(bytes_)))
            number += 1
    print(number)


def fetch(port, login, password):
    server = poplib.POP3("127.0.0.1", int(port))
    server.user(login)
    server.pass_(password)
    count = len(server.list()[1])
    server.uidl()
    octets = sum(server.retr(number)[2] for number in range(1, count + 1))
    server.quit()
    print(count, octets)


if __name__ == "__main__":
    {"fill": fill, "replies": replies, "fetch": fetch}[sys.argv[1]](*sys.argv[2:])
