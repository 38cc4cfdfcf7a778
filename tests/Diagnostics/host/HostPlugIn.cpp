// A plug-in bundle for the host tests: no "CFBundleName" and no short version in its dictionary,
// so the host falls back to the file name and to "CFBundleVersion".
#include <QObject>
#include <QtPlugin>

class VKHostTestPlugIn : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "com.vessan.VessanUtilities.HostPlugIn" FILE "HostPlugIn.json")
};

#include "HostPlugIn.moc"
