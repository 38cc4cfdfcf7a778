// Reads a multipart/form-data body as the report clients send it into its parts, with limits on
// the number and size of parts. Pure: no files, no network; any thread.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

// Limits of one upload. A report that breaks one is refused as a whole.
struct VKUploadLimits
{
    qint64 maxBodyBytes = 64 * 1024 * 1024;      // the whole request body
    qint64 maxTextFieldBytes = 4 * 1024 * 1024;  // one plain field
    qint64 maxParts = 128;                       // parts of one body, empty ones included
    qint64 maxHeaderBytes = 8 * 1024;            // the header block of one part
    qint64 maxArchiveEntries = 1000;             // entries of one zip attachment
    qint64 maxUnpackedBytes = 256 * 1024 * 1024; // all archives of one report, unpacked
};

struct VKMultipartPart
{
    QByteArray name;     // the field name as sent (between the quotes)
    QByteArray fileName; // the file name as sent; null for a plain field
    QByteArray body;

    bool isFile() const { return !fileName.isNull(); }
};

class VKMultipartReader
{
public:
    enum Status {
        Ok,
        Malformed, // not multipart/form-data, or broken framing or headers: answered with 400
        TooLarge,  // a limit was broken: answered with 413
    };

    struct Result
    {
        Status status = Malformed;
        QString error;                // why, for the log line; empty when Ok
        QList<VKMultipartPart> parts; // in wire order; parts without headers are dropped
    };

    // The boundary of a "multipart/form-data; boundary=..." header value, or a null array.
    static QByteArray boundaryOfContentType(const QByteArray &contentType);

    // Splits `body` at `boundary`. A part that is only the boundary line and an empty line (how
    // clients send a value they cannot encode) carries nothing and is dropped.
    [[nodiscard]] static Result read(const QByteArray &body, const QByteArray &boundary,
                                     const VKUploadLimits &limits = {});
};
