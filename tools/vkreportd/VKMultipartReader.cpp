#include "VKMultipartReader.h"

#include <optional>

namespace {

constexpr qsizetype kMaxBoundaryLength = 70;
constexpr int kMaxHeaderLines = 32;

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

struct Parameter
{
    QByteArray key; // lower case
    QByteArray value;
};

// "type; key=value; key="quoted value"" into its type (lower case) and parameters. Clients put
// names between quotes without escaping anything, so a quoted value ends at the first quote that
// is followed by ";" or the end of the header, not at the first quote.
std::optional<std::pair<QByteArray, QList<Parameter>>> parseHeaderValue(const QByteArray &value)
{
    qsizetype pos = value.indexOf(';');
    const QByteArray type = value.left(pos < 0 ? value.size() : pos).trimmed().toLower();
    QList<Parameter> parameters;
    while (pos >= 0 && pos < value.size()) {
        ++pos; // past ';'
        while (pos < value.size() && isBlank(value.at(pos)))
            ++pos;
        if (pos == value.size())
            break;
        const qsizetype equals = value.indexOf('=', pos);
        if (equals < 0)
            return std::nullopt;
        Parameter parameter;
        parameter.key = value.mid(pos, equals - pos).trimmed().toLower();
        if (parameter.key.isEmpty() || parameter.key.contains(';'))
            return std::nullopt;
        pos = equals + 1;
        while (pos < value.size() && isBlank(value.at(pos)))
            ++pos;
        if (pos < value.size() && value.at(pos) == '"') {
            qsizetype close = pos;
            qsizetype next = -1;
            while ((close = value.indexOf('"', close + 1)) >= 0) {
                qsizetype after = close + 1;
                while (after < value.size() && isBlank(value.at(after)))
                    ++after;
                if (after == value.size() || value.at(after) == ';') {
                    next = after;
                    break;
                }
            }
            if (close < 0)
                return std::nullopt; // no closing quote
            parameter.value = value.mid(pos + 1, close - pos - 1);
            pos = next;
        } else {
            const qsizetype end = value.indexOf(';', pos);
            parameter.value = value.mid(pos, end < 0 ? -1 : end - pos).trimmed();
            pos = end;
        }
        parameters.append(parameter);
    }
    return std::make_pair(type, parameters);
}

const Parameter *findParameter(const QList<Parameter> &parameters, const char *key)
{
    for (const Parameter &parameter : parameters) {
        if (parameter.key == key)
            return &parameter;
    }
    return nullptr;
}

VKMultipartReader::Result failure(VKMultipartReader::Status status, const QString &error)
{
    VKMultipartReader::Result result;
    result.status = status;
    result.error = error;
    return result;
}

} // namespace

QByteArray VKMultipartReader::boundaryOfContentType(const QByteArray &contentType)
{
    const auto parsed = parseHeaderValue(contentType);
    if (!parsed || parsed->first != "multipart/form-data")
        return {};
    const Parameter *boundary = findParameter(parsed->second, "boundary");
    if (!boundary || boundary->value.isEmpty())
        return {};
    return boundary->value;
}

VKMultipartReader::Result VKMultipartReader::read(const QByteArray &body,
                                                  const QByteArray &boundary,
                                                  const VKUploadLimits &limits)
{
    if (body.size() > limits.maxBodyBytes)
        return failure(TooLarge, QStringLiteral("body of %1 bytes, more than %2")
                                     .arg(body.size())
                                     .arg(limits.maxBodyBytes));
    if (boundary.isEmpty() || boundary.size() > kMaxBoundaryLength || boundary.contains('\r') ||
        boundary.contains('\n'))
        return failure(Malformed, QStringLiteral("unusable boundary"));

    const QByteArray dashBoundary = "--" + boundary;
    const QByteArray delimiter = "\r\n" + dashBoundary;
    qsizetype pos = 0;
    if (!body.startsWith(dashBoundary)) {
        // A preamble is allowed; it ends with the line break before the first boundary.
        pos = body.indexOf(delimiter);
        if (pos < 0)
            return failure(Malformed, QStringLiteral("no boundary line"));
        pos += 2;
    }
    pos += dashBoundary.size();

    Result result;
    qint64 partCount = 0;
    for (;;) {
        if (body.mid(pos, 2) == "--") {
            result.status = Ok;
            return result; // the closing boundary; whatever follows is epilogue
        }
        while (pos < body.size() && isBlank(body.at(pos)))
            ++pos;
        if (body.mid(pos, 2) != "\r\n")
            return failure(Malformed, QStringLiteral("boundary line not ended by CR LF"));
        pos += 2;
        const qsizetype next = body.indexOf(delimiter, pos);
        if (next < 0)
            return failure(Malformed, QStringLiteral("no closing boundary"));
        if (++partCount > limits.maxParts)
            return failure(TooLarge, QStringLiteral("more than %1 parts").arg(limits.maxParts));
        const QByteArray content = body.mid(pos, next - pos);
        pos = next + delimiter.size();
        if (content.isEmpty())
            continue;

        qsizetype headerEnd = 0;
        qsizetype bodyStart = 2;
        if (!content.startsWith("\r\n")) {
            headerEnd = content.indexOf("\r\n\r\n");
            if (headerEnd < 0 && content.size() > limits.maxHeaderBytes)
                headerEnd = content.size(); // judged too large below
            else if (headerEnd < 0)
                return failure(Malformed,
                               QStringLiteral("part %1 has no end of headers").arg(partCount));
            bodyStart = headerEnd + 4;
        }
        if (headerEnd > limits.maxHeaderBytes)
            return failure(TooLarge, QStringLiteral("part %1 has more than %2 bytes of headers")
                                         .arg(partCount)
                                         .arg(limits.maxHeaderBytes));

        // Header lines; a line starting with a blank continues the previous one.
        QList<QByteArray> lines;
        for (const QByteArray &line : content.left(headerEnd).split('\n')) {
            QByteArray text = line.endsWith('\r') ? line.chopped(1) : line;
            if (text.contains('\r') || text.contains('\0'))
                return failure(Malformed,
                               QStringLiteral("part %1 has a broken header line").arg(partCount));
            if (!text.isEmpty() && isBlank(text.at(0)) && !lines.isEmpty())
                lines.last() += ' ' + text.trimmed();
            else
                lines.append(text);
        }
        if (lines.size() > kMaxHeaderLines)
            return failure(TooLarge,
                           QStringLiteral("part %1 has too many header lines").arg(partCount));

        std::optional<std::pair<QByteArray, QList<Parameter>>> disposition;
        for (const QByteArray &line : lines) {
            if (line.isEmpty())
                continue;
            const qsizetype colon = line.indexOf(':');
            if (colon <= 0)
                return failure(Malformed, QStringLiteral("part %1 has a header line without a "
                                                         "name")
                                              .arg(partCount));
            if (line.left(colon).trimmed().toLower() != "content-disposition")
                continue;
            if (disposition)
                return failure(
                    Malformed,
                    QStringLiteral("part %1 has two Content-Disposition headers").arg(partCount));
            disposition = parseHeaderValue(line.mid(colon + 1));
            if (!disposition)
                return failure(
                    Malformed,
                    QStringLiteral("part %1 has a broken Content-Disposition").arg(partCount));
        }
        if (!disposition || disposition->first != "form-data")
            return failure(Malformed, QStringLiteral("part %1 is not form-data").arg(partCount));
        const Parameter *name = findParameter(disposition->second, "name");
        if (!name || name->value.isEmpty())
            return failure(Malformed, QStringLiteral("part %1 has no name").arg(partCount));

        VKMultipartPart part;
        part.name = name->value;
        if (const Parameter *fileName = findParameter(disposition->second, "filename"))
            part.fileName = fileName->value.isNull() ? QByteArray("") : fileName->value;
        part.body = content.mid(bodyStart);
        if (!part.isFile() && part.body.size() > limits.maxTextFieldBytes)
            return failure(TooLarge, QStringLiteral("field %1 has more than %2 bytes")
                                         .arg(QString::fromUtf8(part.name))
                                         .arg(limits.maxTextFieldBytes));
        result.parts.append(part);
    }
}
