#include "VKMultipartReader.h"
#include "VKReportServerProcess.h"
#include "VKReportStore.h"
#include "VKTestSupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <gtest/gtest.h>
#include <zip.h>

#include <sys/stat.h>

namespace {

const QByteArray B = "0xKh3mLbOuNdArY";

QByteArray field(const QByteArray &name, const QByteArray &value)
{
    return "--" + B + "\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value +
           "\r\n";
}

QByteArray file(const QByteArray &name, const QByteArray &fileName, const QByteArray &bytes)
{
    return "--" + B + "\r\nContent-Disposition: form-data; name=\"" + name + "\"; filename=\"" +
           fileName + "\"\r\nContent-Type: application/octet-stream\r\n\r\n" + bytes + "\r\n";
}

const QByteArray end = "--" + B + "--\r\n";

// "name=body" per part, file parts as "name[fileName]=body", joined by "|".
QString summary(const QList<VKMultipartPart> &parts)
{
    QStringList items;
    for (const VKMultipartPart &part : parts) {
        QString item = QString::fromUtf8(part.name);
        if (part.isFile())
            item += u'[' + QString::fromUtf8(part.fileName) + u']';
        items << item + u'=' + QString::fromUtf8(part.body);
    }
    return items.join(u'|');
}

struct ZipEntry
{
    QByteArray name;
    QByteArray bytes;
    mode_t mode = S_IFREG | 0644;
};

QByteArray makeZip(const VKTempDir &dir, const QList<ZipEntry> &entries)
{
    const QString path = dir.filePath(QStringLiteral("made.zip"));
    QFile::remove(path);
    int error = 0;
    zip_t *archive =
        zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    EXPECT_NE(archive, nullptr);
    for (const ZipEntry &entry : entries) {
        zip_source_t *source =
            zip_source_buffer(archive, entry.bytes.constData(), entry.bytes.size(), 0);
        const zip_int64_t index = zip_file_add(archive, entry.name.constData(), source, 0);
        EXPECT_GE(index, 0);
        zip_file_set_external_attributes(archive, zip_uint64_t(index), 0, ZIP_OPSYS_UNIX,
                                         zip_uint32_t(entry.mode) << 16);
    }
    EXPECT_EQ(zip_close(archive), 0);
    QFile in(path);
    EXPECT_TRUE(in.open(QIODevice::ReadOnly));
    return in.readAll();
}

QByteArray readFile(const QString &path)
{
    QFile in(path);
    return in.open(QIODevice::ReadOnly) ? in.readAll() : QByteArray("(missing)");
}

// Every entry under `folder`, recursively, sorted, folders marked with "/".
QStringList tree(const QString &folder)
{
    QStringList names;
    const QDir dir(folder);
    for (const QFileInfo &info : dir.entryInfoList(
             QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System, QDir::Name)) {
        if (info.isDir() && !info.isSymLink()) {
            names << info.fileName() + u'/';
            for (const QString &inner : tree(info.filePath()))
                names << info.fileName() + u'/' + inner;
        } else {
            names << info.fileName();
        }
    }
    return names;
}

// ---------------------------------------------------------------- the multipart reader

struct ReadCase
{
    const char *name;
    QByteArray body;
    VKMultipartReader::Status status;
    QString parts; // summary() when Ok
};

TEST(ReportServerReader, Cases)
{
    VKUploadLimits limits;
    limits.maxParts = 3;
    limits.maxTextFieldBytes = 10;
    limits.maxBodyBytes = 400;
    const QByteArray headerless = "--" + B + "\r\n\r\n";
    const QList<ReadCase> cases = {
        {"empty form", end, VKMultipartReader::Ok, ""},
        {"field and file", field("A", "C:/x") + file("F", "a.zip", "PK\r\n--") + end,
         VKMultipartReader::Ok, "A=C:/x|F[a.zip]=PK\r\n--"},
        {"empty value", field("A", "") + end, VKMultipartReader::Ok, "A="},
        {"headerless part of an unknown value is dropped", field("A", "1") + headerless + end,
         VKMultipartReader::Ok, "A=1"},
        {"quote inside the name", field("a\"b", "v") + end, VKMultipartReader::Ok, "a\"b=v"},
        {"empty file name", file("F", "", "x") + end, VKMultipartReader::Ok, "F[]=x"},
        {"preamble and epilogue", "junk\r\n" + field("A", "1") + end + "trailer",
         VKMultipartReader::Ok, "A=1"},
        {"file larger than a text field may be", file("F", "f", "12345678901") + end,
         VKMultipartReader::Ok, "F[f]=12345678901"},
        {"no boundary at all", "hello", VKMultipartReader::Malformed, ""},
        {"no closing boundary", field("A", "1"), VKMultipartReader::Malformed, ""},
        {"boundary line followed by junk", "--" + B + "x\r\n" + end, VKMultipartReader::Malformed,
         ""},
        {"part without an end of headers",
         "--" + B + "\r\nContent-Disposition: form-data; name=\"A\"\r\n--" + B + "--\r\n",
         VKMultipartReader::Malformed, ""},
        {"part without a name", "--" + B + "\r\nContent-Disposition: form-data\r\n\r\nv\r\n" + end,
         VKMultipartReader::Malformed, ""},
        {"part that is not form-data",
         "--" + B + "\r\nContent-Disposition: attachment; name=\"A\"\r\n\r\nv\r\n" + end,
         VKMultipartReader::Malformed, ""},
        {"headers without a disposition", "--" + B + "\r\nX-Other: 1\r\n\r\nv\r\n" + end,
         VKMultipartReader::Malformed, ""},
        {"unclosed quote",
         "--" + B + "\r\nContent-Disposition: form-data; name=\"A\r\n\r\nv\r\n" + end,
         VKMultipartReader::Malformed, ""},
        {"four parts, three allowed",
         field("A", "") + field("B", "") + field("C", "") + field("D", "") + end,
         VKMultipartReader::TooLarge, ""},
        {"text field over its limit", field("A", "12345678901") + end, VKMultipartReader::TooLarge,
         ""},
        {"body over its limit", file("F", "f", QByteArray(400, 'x')) + end,
         VKMultipartReader::TooLarge, ""},
    };
    for (const ReadCase &c : cases) {
        const auto result = VKMultipartReader::read(c.body, B, limits);
        EXPECT_EQ(result.status, c.status) << c.name << ": " << result.error;
        if (c.status == VKMultipartReader::Ok)
            EXPECT_EQ(summary(result.parts), c.parts) << c.name;
        else
            EXPECT_FALSE(result.error.isEmpty()) << c.name;
    }
}

TEST(ReportServerReader, BoundaryOfContentType)
{
    const QList<std::pair<QByteArray, QByteArray>> cases = {
        {"multipart/form-data; boundary=0xKh3mLbOuNdArY", "0xKh3mLbOuNdArY"},
        {"Multipart/Form-Data; Boundary=\"a b\"", "a b"},
        {"multipart/form-data;boundary=x; charset=utf-8", "x"},
        {"multipart/form-data", QByteArray()},
        {"multipart/form-data; boundary=", QByteArray()},
        {"text/plain; boundary=x", QByteArray()},
        {"", QByteArray()},
    };
    for (const auto &[header, boundary] : cases)
        EXPECT_EQ(VKMultipartReader::boundaryOfContentType(header), boundary) << header.data();
}

// ---------------------------------------------------------------- safe names and the store

TEST(ReportServerStore, SafeBaseNames)
{
    const QList<std::pair<QByteArray, QString>> cases = {
        {"CrashReports.zip", "CrashReports.zip"},
        {"../../etc/passwd", "passwd"},
        {"C:\\Users\\x\\a.crash", "a.crash"},
        {"/abs/path/", "unnamed"},
        {"..", "unnamed"},
        {"", "unnamed"},
        {".hidden", "hidden"},
        {" . .x ", "x"},
        {"a b:c*d?.txt", "a b_c_d_.txt"},
        {QByteArray("a\0b\nc", 5), "a_b_c"},
        {"r\xc3\xa9sum\xc3\xa9.txt", QStringLiteral("r\u00e9sum\u00e9.txt")},
        {QByteArray(300, 'a') + ".zip", QString(196, u'a') + ".zip"},
        {QByteArray(150, '\xc3').replace("\xc3", "\xc3\xa9") + ".txt",
         QString(98, QChar(0xe9)) + ".txt"},
    };
    for (const auto &[name, safe] : cases)
        EXPECT_EQ(VKReportStore::safeBaseName(name), safe) << name.toHex().data();
}

QList<VKMultipartPart> partsOf(const QByteArray &body)
{
    const auto result = VKMultipartReader::read(body, B);
    EXPECT_EQ(result.status, VKMultipartReader::Ok) << result.error;
    return result.parts;
}

TEST(ReportServerStore, LayoutAndNameClashes)
{
    VKTempDir dir;
    const QByteArray zip = makeZip(dir, {{"a.crash", "crash one"}, {"b.crash", "crash two"}});
    const QDateTime at = QDateTime::fromString("2026-01-02T03:04:05Z", Qt::ISODate);
    VKReportStore store(dir.filePath("reports"));
    const auto result =
        store.store(partsOf(field("CRASH_REPORT", "text") +
                            file("CRASH_REPORTS_ATTACHMENT", "/tmp/CrashReports.zip", zip) +
                            field("../x", "up") + file("F1", "CRASH_REPORT.txt", "clash") +
                            file("F2", "crash_report.TXT", "clash without case") +
                            file("F3", "_parts.tsv", "reserved") + end),
                    at);
    ASSERT_EQ(result.status, VKReportStore::Stored) << result.error;
    EXPECT_EQ(result.folderName, "20260102-030405-1");
    EXPECT_EQ(result.fieldCount, 2);
    EXPECT_EQ(result.fileCount, 4);
    EXPECT_EQ(result.archiveCount, 1);
    const QString folder = dir.filePath("reports/20260102-030405-1");
    EXPECT_EQ(
        tree(dir.filePath("reports")),
        QStringList({"20260102-030405-1/", "20260102-030405-1/CRASH_REPORT-2.txt",
                     "20260102-030405-1/CRASH_REPORT.txt", "20260102-030405-1/CrashReports/",
                     "20260102-030405-1/CrashReports/a.crash",
                     "20260102-030405-1/CrashReports/b.crash", "20260102-030405-1/CrashReports.zip",
                     "20260102-030405-1/_parts-2.tsv", "20260102-030405-1/_parts.tsv",
                     "20260102-030405-1/crash_report-3.TXT", "20260102-030405-1/x.txt"}));
    EXPECT_EQ(readFile(folder + "/CRASH_REPORT.txt"), "text");
    EXPECT_EQ(readFile(folder + "/CRASH_REPORT-2.txt"), "clash");
    EXPECT_EQ(readFile(folder + "/CrashReports/b.crash"), "crash two");
    EXPECT_EQ(readFile(folder + "/CrashReports.zip"), zip);
    EXPECT_EQ(readFile(folder + "/_parts.tsv"),
              "field\tCRASH_REPORT\tCRASH_REPORT.txt\t4\n"
              "file\tCRASH_REPORTS_ATTACHMENT\tCrashReports.zip\t" +
                  QByteArray::number(zip.size()) +
                  "\t/tmp/CrashReports.zip\n"
                  "archive\tCRASH_REPORTS_ATTACHMENT\tCrashReports/\t2\n"
                  "field\t../x\tx.txt\t2\n"
                  "file\tF1\tCRASH_REPORT-2.txt\t5\tCRASH_REPORT.txt\n"
                  "file\tF2\tcrash_report-3.TXT\t18\tcrash_report.TXT\n"
                  "file\tF3\t_parts-2.tsv\t8\t_parts.tsv\n");

    // A second report in the same second gets the next number; the first stays as it was.
    const auto second = store.store(partsOf(field("A", "1") + end), at);
    EXPECT_EQ(second.folderName, "20260102-030405-2");
    EXPECT_EQ(readFile(folder + "/CRASH_REPORT.txt"), "text");
}

struct ArchiveCase
{
    const char *name;
    QList<ZipEntry> entries; // empty: the bytes below are sent as the archive
    QByteArray bytes;
    VKReportStore::Status status;
    QStringList unpacked; // what the unpacked folder holds when Stored
};

TEST(ReportServerStore, HostileArchives)
{
    VKTempDir dir;
    VKUploadLimits limits;
    limits.maxArchiveEntries = 3;
    limits.maxUnpackedBytes = 1000;
    const QList<ArchiveCase> cases = {
        {"entries climbing out stay inside, flat",
         {{"../../evil.sh", "x"}, {"/etc/cron.d/job", "y"}, {"dir/../../z", "z"}},
         {},
         VKReportStore::Stored,
         {"evil.sh", "job", "z"}},
        {"links, folders and devices are skipped",
         {{"link", "/etc/passwd", S_IFLNK | 0777},
          {"folder/", "", S_IFDIR | 0755},
          {"fifo", "", S_IFIFO | 0644}},
         {},
         VKReportStore::Stored,
         {}},
        {"same names get numbers",
         {{"a/x.log", "1"}, {"b/x.log", "2"}, {"X.LOG", "3"}},
         {},
         VKReportStore::Stored,
         {"X-3.LOG", "x-2.log", "x.log"}},
        {"too many entries",
         {{"1", ""}, {"2", ""}, {"3", ""}, {"4", ""}},
         {},
         VKReportStore::TooLarge,
         {}},
        {"a bomb: small packed, large unpacked",
         {{"zeros", QByteArray(1001, '\0')}},
         {},
         VKReportStore::TooLarge,
         {}},
        {"the limit counts all entries",
         {{"a", QByteArray(600, 'a')}, {"b", QByteArray(600, 'b')}},
         {},
         VKReportStore::TooLarge,
         {}},
        {"not an archive is kept packed", {}, "PK\x03\x04 not really", VKReportStore::Stored, {}},
    };
    int n = 0;
    for (const ArchiveCase &c : cases) {
        const QString reports = dir.filePath(QStringLiteral("r%1").arg(++n));
        const QByteArray zip = c.entries.isEmpty() ? c.bytes : makeZip(dir, c.entries);
        const auto result =
            VKReportStore(reports, limits)
                .store(partsOf(file("Z", "Z.zip", zip) + end), QDateTime::currentDateTimeUtc());
        EXPECT_EQ(result.status, c.status) << c.name << ": " << result.error;
        if (result.status != VKReportStore::Stored) {
            EXPECT_EQ(tree(reports), QStringList()) << c.name; // no temporary folder left
            continue;
        }
        const QString folder = reports + u'/' + result.folderName;
        if (c.entries.isEmpty()) {
            EXPECT_EQ(tree(folder), QStringList({"Z.zip", "_parts.tsv"})) << c.name;
            EXPECT_EQ(result.notes.size(), 1) << c.name;
            continue;
        }
        QStringList inside = tree(folder + "/Z");
        EXPECT_EQ(inside, c.unpacked) << c.name;
        for (const QString &name : inside)
            EXPECT_FALSE(QFileInfo(folder + "/Z/" + name).isSymLink()) << c.name;
    }
    EXPECT_FALSE(QFile::exists(dir.filePath("evil.sh")));
}

// ---------------------------------------------------------------- the server as a process

// Sends `request` as it is (the first `split` bytes on their own, a moment before the rest)
// and answers the status code of the reply (0 for none).
int rawRequest(quint16 port, const QByteArray &request, qsizetype split = 0)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    if (!socket.waitForConnected(5000))
        return 0;
    if (split > 0) {
        socket.write(request.left(split));
        socket.waitForBytesWritten(1000);
        QThread::msleep(50);
    }
    socket.write(request.mid(split));
    QByteArray reply;
    while (socket.state() == QAbstractSocket::ConnectedState) {
        socket.waitForBytesWritten(100);
        if (!socket.waitForReadyRead(5000))
            break; // closed, or no answer
        reply += socket.readAll();
        const qsizetype headEnd = reply.indexOf("\r\n\r\n");
        const auto length =
            QRegularExpression("(?i)content-length: *(\\d+)").match(QString::fromLatin1(reply));
        if (headEnd >= 0 && length.hasMatch() &&
            reply.size() >= headEnd + 4 + length.captured(1).toLongLong())
            break;
    }
    reply += socket.readAll();
    return reply.startsWith("HTTP/1.1 ") ? reply.mid(9, 3).toInt() : 0;
}

QByteArray post(const QByteArray &path, const QByteArray &contentType, const QByteArray &body)
{
    QByteArray head = "POST " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n";
    if (!contentType.isNull())
        head += "Content-Type: " + contentType + "\r\n";
    return head + "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

struct HostileCase
{
    const char *name;
    QByteArray request;
    int status;
    qsizetype split = 0; // bytes sent on their own first
};

TEST(ReportServerProcess, HostileRequestsLeaveNothing)
{
    VKTempDir dir;
    const QString reports = dir.filePath("reports");
    VKReportServerProcess server(reports, {"--max-body", "4096", "--max-unpacked", "1000"});
    ASSERT_NE(server.port(), 0);
    const QByteArray path = "/bugreports/sendbugreport.php";
    const QByteArray form = "multipart/form-data; boundary=" + B;
    const QByteArray bomb = makeZip(dir, {{"zeros", QByteArray(100000, '\0')}});
    QByteArray chunked = "POST " + path + " HTTP/1.1\r\nHost: x\r\nContent-Type: " + form +
                         "\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (int i = 0; i < 3; ++i)
        chunked += "8000\r\n" + QByteArray(0x8000, 'x') + "\r\n";
    chunked += "0\r\n\r\n";

    const QList<HostileCase> cases = {
        {"unknown path", "GET /index.html HTTP/1.1\r\nHost: x\r\n\r\n", 404},
        {"GET on a report path", "GET " + path + " HTTP/1.1\r\nHost: x\r\n\r\n", 405},
        {"no content type", post(path, QByteArray(), field("A", "1") + end), 400},
        {"not multipart", post(path, "text/plain", "A=1"), 400},
        {"no boundary", post(path, "multipart/form-data", field("A", "1") + end), 400},
        {"another boundary", post(path, "multipart/form-data; boundary=zz", field("A", "1") + end),
         400},
        {"no closing boundary", post(path, form, field("A", "1")), 400},
        {"part without a name",
         post(path, form, "--" + B + "\r\nContent-Disposition: form-data\r\n\r\nv\r\n" + end), 400},
        {"declared body over the limit",
         post(path, form, file("F", "f", QByteArray(5000, 'x')) + end), 413},
        {"declared body over the limit, head in two pieces",
         post(path, form, file("F", "f", QByteArray(5000, 'x')) + end), 413, 20},
        {"chunked body over the limit", chunked, 413},
        {"zip bomb", post(path, form, file("F", "b.zip", bomb) + end), 413},
    };
    for (const HostileCase &c : cases)
        EXPECT_EQ(rawRequest(server.port(), c.request, c.split), c.status) << c.name;
    EXPECT_EQ(tree(reports), QStringList());
    const QString log = server.log();
    EXPECT_EQ(log.count(QRegularExpression(" 400 ")), 6) << log;
    EXPECT_EQ(log.count(QRegularExpression(" 413 ")), 4) << log;
    // Refused before the request was read whole: the declared (also when the head came in
    // pieces) and the counted body.
    EXPECT_EQ(log.count(" 413 /bugreports/sendbugreport.php declared body of 5140 bytes, more "
                        "than 4096\n"),
              2)
        << log;
    EXPECT_TRUE(log.contains(" 413 /bugreports/sendbugreport.php request of more than 69632 "
                             "bytes\n"))
        << log;

    // Still serving, and a good report next to the refused ones is stored and logged.
    EXPECT_EQ(rawRequest(server.port(), post(path, form, field("A", "1") + end)), 200);
    EXPECT_EQ(tree(reports).size(), 3); // the folder, A.txt, _parts.tsv
    EXPECT_TRUE(
        QRegularExpression("^\\S+Z 127\\.0\\.0\\.1 200 /bugreports/sendbugreport\\.php stored "
                           "\\S+ \\(1 fields, 0 files, 0 archives, 1 bytes\\)$",
                           QRegularExpression::MultilineOption)
            .match(server.log())
            .hasMatch())
        << server.log();
    EXPECT_EQ(server.stop(), 0) << "SIGTERM ends it normally";
}

struct IdleCase
{
    const char *name;
    QList<QByteArray> pieces; // sent 0.1 s apart
    QByteArray answer;        // how the reply starts; empty: closed without one
    QString logged;           // the log line's end; empty: none
};

TEST(ReportServerProcess, SilentConnectionsAreClosed)
{
    VKTempDir dir;
    VKReportServerProcess server(dir.filePath("reports"), {"--idle-timeout", "0.5"});
    ASSERT_NE(server.port(), 0);
    const QByteArray path = "/bugreports/sendbugreport.php";
    const QString unfinished =
        " 408 " + QString::fromLatin1(path) + " request unfinished after 0.5 s of silence\n";
    const QByteArray request =
        post(path, "multipart/form-data; boundary=" + B, field("A", "1") + end);
    QList<QByteArray> trickle;
    for (qsizetype at = 0; at < request.size(); at += request.size() / 10 + 1)
        trickle << request.mid(at, request.size() / 10 + 1);
    const QList<IdleCase> cases = {
        {"nothing sent", {}, "", " - - closed: nothing sent for 0.5 s\n"},
        {"headers cut short",
         {"POST " + path + " HTTP/1.1\r\nHost: x\r\n"},
         "HTTP/1.1 408 ",
         unfinished},
        {"body cut short", {request.left(request.size() - 5)}, "HTTP/1.1 408 ", unfinished},
        {"silent after its answer: closed quietly", {request}, "HTTP/1.1 200 ", ""},
        {"slow but never silent for long", trickle, "HTTP/1.1 200 ", ""},
    };
    for (const IdleCase &c : cases) {
        const qsizetype logged = server.log().size();
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, server.port());
        ASSERT_TRUE(socket.waitForConnected(5000)) << c.name;
        for (const QByteArray &piece : c.pieces) {
            socket.write(piece);
            socket.waitForBytesWritten(1000);
            if (c.pieces.size() > 1)
                QThread::msleep(100);
        }
        QByteArray reply;
        while (socket.state() == QAbstractSocket::ConnectedState && socket.waitForReadyRead(10000))
            reply += socket.readAll();
        reply += socket.readAll();
        EXPECT_EQ(socket.state(), QAbstractSocket::UnconnectedState) << c.name;
        EXPECT_TRUE(reply.startsWith(c.answer)) << c.name << ": " << reply.constData();
        if (c.answer.isEmpty()) {
            EXPECT_TRUE(reply.isEmpty()) << c.name;
        }
        const QString added = server.log().mid(logged);
        const qsizetype lines = added.count(u'\n');
        if (c.logged.isEmpty()) {
            EXPECT_EQ(lines, c.answer.contains("200") ? 1 : 0) << c.name << ": " << added;
        } else {
            EXPECT_EQ(lines, 1) << c.name << ": " << added;
            EXPECT_TRUE(added.endsWith(c.logged)) << c.name << ": " << added;
        }
    }
}

struct OptionCase
{
    const char *name;
    QStringList arguments;
    int status;
    QString error;
};

TEST(ReportServerProcess, UnusableOptions)
{
    VKTempDir dir;
    QTcpServer busy;
    ASSERT_TRUE(busy.listen(QHostAddress::LocalHost, 0));
    const QString busyPort = QString::number(busy.serverPort());
    const QString file = dir.writeFile("file", "x");
    const QList<OptionCase> cases = {
        {"port in use",
         {"--port", busyPort},
         1,
         "vkreportd: cannot listen on 127.0.0.1 port " + busyPort +
             ": The bound address is already in use\n"},
        {"port out of range",
         {"--port", "65536"},
         2,
         "vkreportd: --port takes a number from 0 to 65535\n"},
        {"port not a number",
         {"--port", "http"},
         2,
         "vkreportd: --port takes a number from 0 to 65535\n"},
        {"empty body limit",
         {"--port", "0", "--max-body", "0"},
         2,
         "vkreportd: --max-body and --max-unpacked take a positive number of bytes\n"},
        {"idle timeout of nothing",
         {"--port", "0", "--idle-timeout", "0"},
         2,
         "vkreportd: --idle-timeout takes a number of seconds from 0.001 to 86400\n"},
        {"address that is none",
         {"--port", "0", "--address", "nowhere"},
         2,
         "vkreportd: not an address: nowhere\n"},
        {"folder that is a file",
         {"--port", "0", "--dir", file + "/reports"},
         1,
         "vkreportd: cannot make the folder " + file + "/reports\n"},
    };
    for (const OptionCase &c : cases) {
        QProcess process;
        process.setWorkingDirectory(dir.path());
        process.start(QStringLiteral(VKREPORTD_PATH), c.arguments);
        ASSERT_TRUE(process.waitForFinished(10000)) << c.name;
        EXPECT_EQ(process.exitCode(), c.status) << c.name;
        EXPECT_EQ(QString::fromUtf8(process.readAllStandardError()), c.error) << c.name;
    }
}

} // namespace
