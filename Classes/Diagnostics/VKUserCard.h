// The current user's card, as far as Linux knows it: first and last name from the account's
// full name (the GECOS field of the password database) and the e-mail address from $EMAIL.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>

struct VK_EXPORT VKUserCard
{
    QString firstName; // null when the account has no full name
    QString lastName;  // null when the full name is one word
    QStringList emailAddresses;

    // The card of the user running the process: the password entry of getuid() (or the entry
    // with that uid in the file set with setPasswordFileForTesting()) and $EMAIL.
    static VKUserCard currentUserCard();

    // Splits a GECOS field: its full name is the text before the first ","; the first word
    // becomes the first name and the rest, blanks trimmed, the last name. "&" stands for the
    // login name with its first letter in upper case, as finger reads it.
    static VKUserCard cardFromGecos(const QString &gecos, const QString &loginName = {});

    // The account's full name (the whole name part of GECOS), null when there is none.
    static QString fullUserName();

    // Reads password entries from another file in passwd(5) form (empty: the system's). For tests.
    static void setPasswordFileForTesting(const QString &path);
};
