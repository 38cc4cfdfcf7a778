// Feeds arbitrary text to the speed-text reader, and checks that every count it answers prints
// as a size text and a speed text that read back to a count of the same magnitude.
#include "Files/VKFileSize.h"

#include <QString>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const quint64 bytes = VKFileSize::byteCountFromHumanReadableFileSizeString(text);
    const QString sizeText = VKFileSize::humanReadableFileSizeStringFromByteCount(bytes);
    const QString speedText = VKFileSize::humanReadableCopySpeedStringFromBytesPerSecond(bytes);
    if (!speedText.endsWith(QStringLiteral("/s")) || !speedText.startsWith(sizeText))
        std::abort();
    // A speed text keeps three significant digits at most, so reading it back stays within a
    // factor of two of the count (or both are tiny).
    const quint64 again = VKFileSize::byteCountFromHumanReadableFileSizeString(speedText);
    const long double ratio = static_cast<long double>(again) / static_cast<long double>(bytes);
    if (bytes >= 100000 && (ratio > 2.0L || ratio < 0.5L))
        std::abort();
    return 0;
}
