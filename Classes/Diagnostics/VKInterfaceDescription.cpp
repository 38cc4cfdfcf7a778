#include "Diagnostics/VKInterfaceDescription.h"

#include <QFile>
#include <QMutex>
#include <QUiLoader>
#include <QWidget>

namespace {

QMutex &folderMutex()
{
    static QMutex mutex;
    return mutex;
}

QString &folder()
{
    static QString path;
    return path;
}

} // namespace

void VKInterfaceDescription::setSearchFolder(const QString &path)
{
    QMutexLocker locker(&folderMutex());
    folder() = path;
}

QString VKInterfaceDescription::searchFolder()
{
    QMutexLocker locker(&folderMutex());
    return folder();
}

QWidget *VKInterfaceDescription::load(const QString &name, QWidget *parent, QString *errorString)
{
    const QString base = searchFolder();
    const QString path = (base.isEmpty() ? QStringLiteral(":/VessanUtilities") : base) +
                         QLatin1Char('/') + name + QStringLiteral(".ui");
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (errorString)
            *errorString = file.errorString();
        return nullptr;
    }
    QUiLoader loader;
    QWidget *widget = loader.load(&file, parent);
    if (!widget && errorString)
        *errorString = loader.errorString();
    return widget;
}
