#include <algorithm>
#include <cstdint>
#include <vector>

#include <fmt/format.h>

#include "OrvPlatform/PropertyListDecoder.h"

// A binary list may name the same object many times, also as its own part, and nest as deep as it
// is long; the libraries that read lists follow all of that. Here every object that can be reached
// is looked at once, before a library sees the list.

namespace orv {

namespace {

constexpr unsigned maximumNesting = 512;
constexpr std::uint64_t maximumUnfoldedBytes = 64 << 20;
constexpr std::uint64_t bytesPerObject = 16;

[[noreturn]] void throwTooDeep() {
    throw DecodingError(
        fmt::format("A property list nested deeper than {} levels.", maximumNesting));
}

[[noreturn]] void throwDamaged() {
    throw DecodingError("A damaged binary property list.");
}

void require(bool condition) {
    if (!condition) throwDamaged();
}

/// The form: "bplist00", the objects, a table of their offsets, and a trailer of 32 bytes.
class BinaryCheck {
public:
    explicit BinaryCheck(std::string_view bytes) : bytes(bytes) {
        require(bytes.size() >= headerBytes + trailerBytes);
        const std::size_t trailer = bytes.size() - trailerBytes;
        offsetBytes = number(trailer + 6, 1);
        referenceBytes = number(trailer + 7, 1);
        const std::uint64_t count = number(trailer + 8, 8);
        top = number(trailer + 16, 8);
        table = number(trailer + 24, 8);
        require(offsetBytes >= 1 && offsetBytes <= 8 && referenceBytes >= 1 && referenceBytes <= 8);
        require(table >= headerBytes && table < trailer && count > 0 && top < count);
        require(count <= (trailer - table) / offsetBytes);
        objects.resize(static_cast<std::size_t>(count));
    }

    void run() {
        if (unfold(top, 1).height > maximumNesting) throwTooDeep();
    }

private:
    static constexpr std::size_t headerBytes = 8;
    static constexpr std::size_t trailerBytes = 32;

    enum class Progress : std::uint8_t { unseen, begun, done };

    struct Object {
        std::uint64_t unfoldedBytes = bytesPerObject;  // of it and all that it holds
        unsigned height = 1;                           // levels, itself included
        Progress progress = Progress::unseen;
    };

    /// A marker byte with its count: what it is, how much, and where that begins.
    struct Head {
        unsigned kind = 0;
        unsigned detail = 0;
        std::uint64_t count = 0;
        std::uint64_t content = 0;
    };

    std::uint64_t number(std::uint64_t position, std::uint64_t size) const {
        require(position <= bytes.size() && size <= bytes.size() - position);
        std::uint64_t value = 0;
        for (std::uint64_t i = 0; i < size; ++i) {
            value = value << 8 | static_cast<unsigned char>(bytes[position + i]);
        }
        return value;
    }

    Head headAt(std::uint64_t position) const {
        const std::uint64_t marker = number(position, 1);
        Head head{static_cast<unsigned>(marker >> 4), static_cast<unsigned>(marker & 15), 0,
                  position + 1};
        head.count = head.detail;
        const bool isCounted = head.kind >= 4 && head.kind != 8;
        if (isCounted && head.detail == 15) {
            const std::uint64_t sizeMarker = number(position + 1, 1);
            require(sizeMarker >> 4 == 1 && (sizeMarker & 15) <= 3);
            const std::uint64_t sizeBytes = std::uint64_t{1} << (sizeMarker & 15);
            head.count = number(position + 2, sizeBytes);
            head.content = position + 2 + sizeBytes;
        }
        return head;
    }

    /// The bytes of an object that holds no others.
    static std::uint64_t leafBytes(const Head& head) {
        switch (head.kind) {
            case 0: require(head.detail == 8 || head.detail == 9); return 0;
            case 1: require(head.detail <= 4); return std::uint64_t{1} << head.detail;
            case 2: require(head.detail == 2 || head.detail == 3); return 1U << head.detail;
            case 3: require(head.detail == 3); return 8;
            case 4:
            case 5: return head.count;
            case 6: require(head.count <= UINT64_MAX / 2); return head.count * 2;
            case 8: require(head.detail <= 7); return head.detail + 1;
            default: throwDamaged();
        }
    }

    /// A text without NUL, which some libraries cannot bear in a key.
    bool isKey(std::uint64_t index) const {
        const Head head = headAt(positionOf(index));
        if (head.kind != 5 && head.kind != 6) return false;
        const std::uint64_t unitBytes = head.kind == 5 ? 1 : 2;
        require(head.content <= table && head.count <= (table - head.content) / unitBytes);
        for (std::uint64_t i = 0; i < head.count; ++i) {
            if (number(head.content + i * unitBytes, unitBytes) == 0) return false;
        }
        return true;
    }

    std::uint64_t positionOf(std::uint64_t index) const {
        require(index < objects.size());
        const std::uint64_t position = number(table + index * offsetBytes, offsetBytes);
        require(position >= headerBytes && position < table);
        return position;
    }

    Object unfold(std::uint64_t index, unsigned depth) {
        if (depth > maximumNesting) throwTooDeep();
        const Head head = headAt(positionOf(index));
        Object& object = objects[static_cast<std::size_t>(index)];
        if (object.progress == Progress::begun)
            throw DecodingError("A property list within itself.");
        if (object.progress == Progress::done) return object;
        object.progress = Progress::begun;
        if (head.kind == 0xA || head.kind == 0xD) {
            unfoldReferences(head, object, depth);
        } else {
            const std::uint64_t size = leafBytes(head);
            require(head.content <= table && size <= table - head.content);
            object.unfoldedBytes += size;
        }
        object.progress = Progress::done;
        return object;
    }

    /// An array's references, or a dictionary's: first to all keys, then to all values.
    void unfoldReferences(const Head& head, Object& object, unsigned depth) {
        const std::uint64_t perEntry = head.kind == 0xD ? 2 : 1;
        require(head.content <= table &&
                head.count <= (table - head.content) / referenceBytes / perEntry);
        for (std::uint64_t i = 0; i < head.count * perEntry; ++i) {
            const std::uint64_t part = number(head.content + i * referenceBytes, referenceBytes);
            require(perEntry == 1 || i >= head.count || isKey(part));
            const Object unfolded = unfold(part, depth + 1);
            object.height = std::max(object.height, unfolded.height + 1);
            object.unfoldedBytes += unfolded.unfoldedBytes;
            if (object.unfoldedBytes > maximumUnfoldedBytes) {
                throw DecodingError("A property list that unfolds beyond 64 MiB.");
            }
        }
    }

    std::string_view bytes;
    std::uint64_t offsetBytes = 0;
    std::uint64_t referenceBytes = 0;
    std::uint64_t top = 0;
    std::uint64_t table = 0;
    std::vector<Object> objects;
};

/// Counts the open arrays and dictionaries; comments, declarations and sections of plain text
/// cannot open or close any.
void checkXml(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) throw DecodingError("A NUL in an XML text.");
    unsigned depth = 0;
    const auto skipPast = [&text](std::string_view end) {
        const std::size_t position = text.find(end);
        if (position == std::string_view::npos) throw DecodingError("A cut-off XML property list.");
        const std::string_view skipped = text.substr(0, position);
        text.remove_prefix(position + end.size());
        return skipped;
    };
    for (;;) {
        const std::size_t tagBegin = text.find('<');
        if (tagBegin == std::string_view::npos) return;
        text.remove_prefix(tagBegin);
        if (text.starts_with("<!--")) {
            skipPast("-->");
        } else if (text.starts_with("<![CDATA[")) {
            skipPast("]]>");
        } else if (text.starts_with("<?")) {
            skipPast("?>");
        } else {
            const std::string_view tag = skipPast(">");
            const bool opens =
                !tag.starts_with("</") && !tag.starts_with("<!") && !tag.ends_with('/');
            if (tag.starts_with("</") && depth > 0) --depth;
            // The elements "plist" and the innermost text stand around and inside the levels.
            if (opens && ++depth > maximumNesting + 2) throwTooDeep();
        }
    }
}

}  // namespace

void checkPropertyList(std::string_view bytes, PropertyListForm form) {
    if (bytes.size() > maximumUnfoldedBytes) throw DecodingError("A property list beyond 64 MiB.");
    if (form == PropertyListForm::binary) {
        BinaryCheck(bytes).run();
    } else {
        checkXml(bytes);
    }
}

}  // namespace orv
