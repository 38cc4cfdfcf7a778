// Feeds arbitrary bytes to the property-list reader; whatever it accepts must write back in the
// binary format and read back to a tree that writes the very same bytes.
#include "Foundation/VKPropertyList.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    VKError error;
    const QVariant value = VKPropertyList::propertyListWithData(input, nullptr, &error);
    if (!value.isValid()) {
        if (error.isNull())
            std::abort();
        return 0;
    }
    const QByteArray binary =
        VKPropertyList::dataWithPropertyList(value, VKPropertyListFormat::Binary, &error);
    if (binary.isEmpty())
        return 0; // e.g. a string holding a NUL character: refused with an error
    const QVariant again = VKPropertyList::propertyListWithData(binary);
    if (VKPropertyList::dataWithPropertyList(again, VKPropertyListFormat::Binary) != binary)
        std::abort();
    (void)VKPropertyList::dataWithPropertyList(value, VKPropertyListFormat::XML);
    return 0;
}
