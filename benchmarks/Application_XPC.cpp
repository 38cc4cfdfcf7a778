// Round trips of a small XPCRequest to vkmetad on a private bus, next to the same call made over
// a fresh bus connection each time (the reference: what opening a connection per request
// costs); and conversions of a 20-key dictionary both ways, next to a plain copy of it.
#include "Application/XPCHelpers.h"
#include "Application/XPCRequest.h"
#include "VKPrivateDBus.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstdio>

namespace {

const QString kService = QStringLiteral("org.vessan.Bench.Metadata");
QString g_file;

QVariantMap twentyKeys()
{
    QVariantMap dictionary;
    for (int i = 0; i < 4; ++i) {
        const QString n = QString::number(i);
        dictionary.insert("name" + n, QStringLiteral("A001_C00%1_0101AB.mov").arg(i));
        dictionary.insert("frames" + n, qlonglong(86400 + i));
        dictionary.insert("size" + n, qulonglong(1) << (30 + i));
        dictionary.insert("created" + n, QDateTime::fromSecsSinceEpoch(1700000000 + i, Qt::UTC));
        dictionary.insert(i % 2 ? "rate" + n : "checksum" + n,
                          i % 2 ? QVariant(25.0) : QVariant(QByteArray(16, char(i))));
    }
    return dictionary;
}

void BM_RequestRoundTrip(benchmark::State &state)
{
    XPCRequest request(kService);
    request.setParameters({{"path", g_file}});
    for (auto _ : state) {
        const std::optional<QVariantMap> reply = request.send();
        if (!reply) {
            state.SkipWithError("no reply");
            return;
        }
        benchmark::DoNotOptimize(reply);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RequestRoundTrip)->UseRealTime();

void BM_RequestRoundTripFreshConnection(benchmark::State &state)
{
    const QString address = QString::fromStdString(VKPrivateDBus::shared().address());
    QMap<QString, QString> parameters{{"path", g_file}};
    int n = 0;
    for (auto _ : state) {
        const QString name = QStringLiteral("bench-%1").arg(++n);
        QDBusMessage call = QDBusMessage::createMethodCall(kService, "/", XPCRequest::interfaceName,
                                                           XPCRequest::methodName);
        call << QVariant::fromValue(parameters);
        {
            QDBusConnection connection = QDBusConnection::connectToBus(address, name);
            const QDBusMessage reply = connection.call(call, QDBus::Block, 10000);
            if (reply.signature() != QLatin1String("a{sv}")) {
                state.SkipWithError("no reply");
                return;
            }
            benchmark::DoNotOptimize(decode_dictionary_from_xpc_object(
                qdbus_cast<QVariantMap>(reply.arguments().constFirst())));
        }
        QDBusConnection::disconnectFromBus(name);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RequestRoundTripFreshConnection)->UseRealTime();

void BM_EncodeDictionary20(benchmark::State &state)
{
    const QVariantMap dictionary = twentyKeys();
    for (auto _ : state) {
        QVariantMap message;
        encode_dictionary_as_xpc_object(message, dictionary);
        benchmark::DoNotOptimize(message);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_EncodeDictionary20);

void BM_DecodeDictionary20(benchmark::State &state)
{
    QVariantMap message;
    encode_dictionary_as_xpc_object(message, twentyKeys());
    for (auto _ : state)
        benchmark::DoNotOptimize(decode_dictionary_from_xpc_object(message));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DecodeDictionary20);

// Reference: building a new dictionary of the same 20 values without converting them.
void BM_CopyDictionary20(benchmark::State &state)
{
    const QVariantMap dictionary = twentyKeys();
    for (auto _ : state) {
        QVariantMap copy;
        for (auto it = dictionary.cbegin(); it != dictionary.cend(); ++it)
            copy.insert(it.key(), it.value());
        benchmark::DoNotOptimize(copy);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CopyDictionary20);

} // namespace

int main(int argc, char **argv)
{
    VKPrivateDBus &bus = VKPrivateDBus::shared();
    if (!bus.isRunning()) {
        std::fprintf(stderr, "%s\n", bus.error().c_str());
        return 1;
    }
    QCoreApplication application(argc, argv);
    QTemporaryDir folder;
    g_file = folder.filePath("clip_0001.dpx");
    QFile file(g_file);
    if (!file.open(QIODevice::WriteOnly) || file.write(QByteArray(4096, 'x')) != 4096)
        return 1;
    file.close();

    QProcess service;
    service.start(QStringLiteral(VKMETAD_PATH), {QStringLiteral("--name"), kService});
    QByteArray out;
    while (!out.contains('\n') && service.waitForReadyRead(10000))
        out += service.readAllStandardOutput();
    if (!out.startsWith("vkmetad: serving")) {
        std::fprintf(stderr, "vkmetad did not start\n");
        return 1;
    }

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    service.kill();
    service.waitForFinished();
    return 0;
}
