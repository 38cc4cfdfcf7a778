#include "Diagnostics/VKUserCard.h"

#include <QFile>
#include <QMutex>

#include <pwd.h>
#include <stdio.h>
#include <unistd.h>

#include <vector>

namespace {

QMutex &passwordFileMutex()
{
    static QMutex mutex;
    return mutex;
}

QString &passwordFile()
{
    static QString path;
    return path;
}

struct PasswordEntry
{
    QString login;
    QString gecos;
    bool found = false;
};

PasswordEntry currentEntry()
{
    PasswordEntry entry;
    QString path;
    {
        QMutexLocker locker(&passwordFileMutex());
        path = passwordFile();
    }
    const uid_t uid = getuid();
    if (!path.isEmpty()) {
        FILE *file = fopen(QFile::encodeName(path).constData(), "r");
        if (!file)
            return entry;
        while (struct passwd *pw = fgetpwent(file)) {
            if (pw->pw_uid == uid) {
                entry = {QString::fromLocal8Bit(pw->pw_name),
                         QString::fromLocal8Bit(pw->pw_gecos ? pw->pw_gecos : ""), true};
                break;
            }
        }
        fclose(file);
        return entry;
    }
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? size_t(size) : 16384);
    struct passwd pw;
    struct passwd *result = nullptr;
    if (getpwuid_r(uid, &pw, buffer.data(), buffer.size(), &result) == 0 && result)
        entry = {QString::fromLocal8Bit(pw.pw_name),
                 QString::fromLocal8Bit(pw.pw_gecos ? pw.pw_gecos : ""), true};
    return entry;
}

QString nameFromGecos(const QString &gecos, const QString &loginName)
{
    QString name = gecos.section(QLatin1Char(','), 0, 0);
    if (name.contains(QLatin1Char('&'))) {
        QString capitalised = loginName;
        if (!capitalised.isEmpty())
            capitalised[0] = capitalised[0].toUpper();
        name.replace(QLatin1Char('&'), capitalised);
    }
    name = name.simplified();
    return name.isEmpty() ? QString() : name;
}

} // namespace

VKUserCard VKUserCard::cardFromGecos(const QString &gecos, const QString &loginName)
{
    VKUserCard card;
    const QString name = nameFromGecos(gecos, loginName);
    if (name.isNull())
        return card;
    const qsizetype blank = name.indexOf(QLatin1Char(' '));
    card.firstName = blank < 0 ? name : name.left(blank);
    if (blank >= 0)
        card.lastName = name.mid(blank + 1);
    return card;
}

VKUserCard VKUserCard::currentUserCard()
{
    const PasswordEntry entry = currentEntry();
    VKUserCard card = entry.found ? cardFromGecos(entry.gecos, entry.login) : VKUserCard();
    const QString email = qEnvironmentVariable("EMAIL").trimmed();
    if (!email.isEmpty())
        card.emailAddresses.append(email);
    return card;
}

QString VKUserCard::fullUserName()
{
    const PasswordEntry entry = currentEntry();
    return entry.found ? nameFromGecos(entry.gecos, entry.login) : QString();
}

void VKUserCard::setPasswordFileForTesting(const QString &path)
{
    QMutexLocker locker(&passwordFileMutex());
    passwordFile() = path;
}
