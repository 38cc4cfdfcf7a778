// Test main of the reporter windows: a widget application (offscreen unless told otherwise)
// with a fixed name, version and domain, so that titles and form fields can be compared.
#include <QApplication>

#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication::setApplicationName(QStringLiteral("ReporterHost"));
    QApplication::setApplicationVersion(QStringLiteral("2.5.1"));
    QApplication::setOrganizationDomain(QStringLiteral("example.com"));
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
