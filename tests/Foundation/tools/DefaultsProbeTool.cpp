// Writes user defaults from a separate process, for the tests of durability and of several
// processes sharing one file.
//   churn <file>                  rewrites a large value and its sequence number until killed,
//                                 printing "writing <n>" before each write
//   keys <file> <prefix> <count>  writes <prefix>0 ... one key and one write at a time
//   exit <folder>                 sets a standard default and returns from main, no event loop
//   quit <folder>                 runs the event loop, quits, and sets a default in aboutToQuit
#include "Foundation/VKUserDefaults.h"

#include <QCoreApplication>
#include <QTimer>

#include <cstdio>

namespace {

int churn(const QString &path)
{
    VKUserDefaults defaults(path);
    for (qint64 sequence = defaults.integerForKey("sequence") + 1;; ++sequence) {
        defaults.setObject(QByteArray(512 * 1024, char('a' + sequence % 26)), "payload");
        defaults.setInteger(sequence, "sequence");
        std::printf("writing %lld\n", static_cast<long long>(sequence));
        std::fflush(stdout);
        if (!defaults.synchronize())
            return 1;
    }
}

int keys(const QString &path, const QString &prefix, int count)
{
    VKUserDefaults defaults(path);
    for (int i = 0; i < count; ++i) {
        defaults.setInteger(i, prefix + QString::number(i));
        if (!defaults.synchronize())
            return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName("Probe");
    QCoreApplication::setOrganizationDomain("example.com");
    const QStringList arguments = application.arguments();
    const QString mode = arguments.value(1);
    if (mode == "churn")
        return churn(arguments.value(2));
    if (mode == "keys")
        return keys(arguments.value(2), arguments.value(3), arguments.value(4).toInt());

    VKUserDefaults::setStandardUserDefaultsFolder(arguments.value(2));
    const auto defaults = VKUserDefaults::standardUserDefaults();
    if (mode == "exit") {
        defaults->setObject("kept", "set/before exit");
        return 0;
    }
    if (mode == "quit") {
        defaults->setBool(true, "setBeforeQuit");
        // Connected after the defaults' own handler, so only a later flush can keep it.
        QObject::connect(&application, &QCoreApplication::aboutToQuit,
                         [defaults] { defaults->setBool(true, "setInAboutToQuit"); });
        QTimer::singleShot(0, &application, &QCoreApplication::quit);
        return application.exec();
    }
    return 2;
}
