// Layout read here: "bplist00", the objects, an offset table, and a 32-byte trailer holding the
// offset and reference sizes, the object count, the top object and the table's position. Only
// containers (array 0xA, set 0xC, dictionary 0xD) matter: their marker's low nibble is the count
// (0xF: an integer object 0x1n of 2^n bytes follows), then one reference per member (two per
// dictionary entry). The walk is iterative, with each object's height remembered, so that
// shared members cost nothing twice.
#include "Foundation/VKBinaryPropertyListCheck_p.h"

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <vector>

namespace {

uint64_t readBigEndian(const unsigned char *bytes, unsigned width)
{
    uint64_t value = 0;
    for (unsigned i = 0; i < width; ++i)
        value = value << 8 | bytes[i];
    return value;
}

struct Reader
{
    const unsigned char *data;
    uint64_t objectsEnd; // where the offset table begins
    uint64_t tableOffset;
    unsigned offsetSize;
    unsigned referenceSize;
    uint64_t count;

    bool offsetOf(uint64_t object, uint64_t *offset) const
    {
        *offset = readBigEndian(data + tableOffset + object * offsetSize, offsetSize);
        return *offset >= 8 && *offset < objectsEnd;
    }

    // The member references of a container; false when the object is damaged.
    bool members(uint64_t object, std::vector<uint64_t> *out) const
    {
        out->clear();
        uint64_t position = 0;
        if (!offsetOf(object, &position))
            return false;
        const unsigned char marker = data[position++];
        const unsigned type = marker >> 4;
        if (type != 0xA && type != 0xC && type != 0xD)
            return true;
        uint64_t members = marker & 0x0F;
        if (members == 0x0F) {
            if (position >= objectsEnd || (data[position] >> 4) != 0x1)
                return false;
            const unsigned width = 1u << (data[position] & 0x0F);
            ++position;
            if (width > 8 || objectsEnd - position < width)
                return false;
            members = readBigEndian(data + position, width);
            position += width;
        }
        if (type == 0xD) {
            if (members > UINT64_MAX / 2)
                return false;
            members *= 2;
        }
        if (members > (objectsEnd - position) / referenceSize)
            return false;
        out->reserve(members);
        for (uint64_t i = 0; i < members; ++i) {
            const uint64_t reference =
                readBigEndian(data + position + i * referenceSize, referenceSize);
            if (reference >= count)
                return false;
            out->push_back(reference);
        }
        return true;
    }
};

} // namespace

bool vkBinaryPropertyListIsShallow(const char *bytes, size_t size, int maximumDepth)
{
    const auto *data = reinterpret_cast<const unsigned char *>(bytes);
    if (size < 8 + 32 || std::string_view(bytes, 8) != "bplist00")
        return false;
    const unsigned char *trailer = data + size - 32;
    Reader reader{data, 0, 0, trailer[6], trailer[7], readBigEndian(trailer + 8, 8)};
    const uint64_t top = readBigEndian(trailer + 16, 8);
    reader.tableOffset = readBigEndian(trailer + 24, 8);
    reader.objectsEnd = reader.tableOffset;
    const uint64_t tableSpace = size - 32;
    if (reader.offsetSize < 1 || reader.offsetSize > 8 || reader.referenceSize < 1 ||
        reader.referenceSize > 8 || reader.count == 0 || reader.count > size ||
        top >= reader.count || reader.tableOffset < 8 || reader.tableOffset > tableSpace ||
        (tableSpace - reader.tableOffset) / reader.offsetSize < reader.count)
        return false;

    enum : uint8_t { Unseen, Open, Done };
    std::vector<uint8_t> state(reader.count, Unseen);
    std::vector<uint32_t> height(reader.count, 0);
    struct Frame
    {
        uint64_t object;
        std::vector<uint64_t> members;
        size_t next = 0;
    };
    std::vector<Frame> stack;
    auto open = [&](uint64_t object) {
        Frame frame{object, {}, 0};
        if (!reader.members(object, &frame.members))
            return false;
        state[object] = Open;
        stack.push_back(std::move(frame));
        return static_cast<int>(stack.size()) <= maximumDepth;
    };
    if (!open(top))
        return false;
    while (!stack.empty()) {
        Frame &frame = stack.back();
        if (frame.next == frame.members.size()) {
            uint32_t tallest = 0;
            for (uint64_t member : frame.members)
                tallest = std::max(tallest, height[member]);
            height[frame.object] = tallest + 1;
            state[frame.object] = Done;
            stack.pop_back();
            continue;
        }
        const uint64_t member = frame.members[frame.next++];
        if (state[member] == Open)
            return false; // contains itself
        if (state[member] == Done) {
            if (stack.size() + height[member] > static_cast<size_t>(maximumDepth))
                return false;
            continue;
        }
        if (!open(member))
            return false;
    }
    return true;
}
