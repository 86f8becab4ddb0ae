// ID3 tags through TagLib. Legacy taggers wrote GBK, windows-1251 and the
// like into ID3v1 fields and into ID3v2 frames flagged Latin-1; the session
// detects the charset itself, so those bytes must reach it unchanged.
#include "metadatareader.h"

#include <taglib/attachedpictureframe.h>
#include <taglib/commentsframe.h>
#include <taglib/id3v1genres.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2tag.h>
#include <taglib/textidentificationframe.h>
#include <taglib/tbytevectorstream.h>
#include <taglib/tfile.h>
#include <taglib/tfilestream.h>

#include <algorithm>
#include <cstring>
#include <mutex>

namespace hostplatform {
namespace metadatareader {

namespace {

using TagLib::ByteVector;
using TagLib::String;

ByteVector untilNul(const ByteVector &data)
{
    const int nul = data.find(ByteVector(1, '\0'));
    return nul < 0 ? data : data.mid(0, unsigned(nul));
}

// One code point per byte: to8Bit(false) gives exactly these bytes back,
// whatever charset they really are in.
class RawId3v2Latin1 : public TagLib::ID3v2::Latin1StringHandler
{
public:
    String parse(const ByteVector &data) const override { return String(untilNul(data), String::Latin1); }
};

class RawId3v1 : public TagLib::ID3v1::StringHandler
{
public:
    // ID3v1 fields are fixed-width, padded with NULs or blanks.
    String parse(const ByteVector &data) const override
    {
        const ByteVector bytes = untilNul(data);
        unsigned n = bytes.size();
        while (n > 0 && bytes[int(n - 1)] == ' ')
            --n;
        return String(bytes.mid(0, n), String::Latin1);
    }
};

// A TagLib file of no particular format: ID3 tags are found by position,
// so a mislabelled or unusual container is read like an MP3.
class TagSource : public TagLib::File
{
public:
    explicit TagSource(TagLib::IOStream *stream) : TagLib::File(stream) {}
    TagLib::Tag *tag() const override { return nullptr; }
    TagLib::AudioProperties *audioProperties() const override { return nullptr; }
    bool save() override { return false; }
};

void putText(MediaFacts &facts, const char *key, const String &text, bool unicode)
{
    if (text.isEmpty())
        return;
    const std::string bytes = text.to8Bit(unicode);
    if (!bytes.empty())
        facts.tags[key] = TagText{bytes, unicode};
}

// The frame's encoding byte as written in the file: TagLib keeps values past
// the four defined ones as they are (and decodes such text as UTF-16), so it
// is compared as a number, never held as the enumeration.
bool isUnicode(int encoding)
{
    return encoding != String::Latin1;
}

// TCON may carry ID3v1 genre numbers ("13", or "(13)" upgraded by TagLib).
String genreText(const TagLib::StringList &fields)
{
    TagLib::StringList names;
    for (const String &field : fields) {
        bool numeric = !field.isEmpty();
        for (auto c : field)
            numeric = numeric && c >= '0' && c <= '9';
        const String name = numeric && field.size() <= 3 ? TagLib::ID3v1::genre(field.toInt()) : field;
        if (!name.isEmpty() && !names.contains(name))
            names.append(name);
    }
    return names.toString(" / ");
}

void readTextFrame(const TagLib::ID3v2::Tag &tag, const char *frameId, const char *key, MediaFacts &facts)
{
    const TagLib::ID3v2::FrameList &frames = tag.frameListMap()[frameId];
    for (const TagLib::ID3v2::Frame *f : frames) {
        const auto *text = dynamic_cast<const TagLib::ID3v2::TextIdentificationFrame *>(f);
        if (!text)
            continue;
        const String value = strcmp(frameId, "TCON") == 0 ? genreText(text->fieldList())
                                                          : text->fieldList().toString(" / ");
        putText(facts, key, value, isUnicode(static_cast<int>(text->textEncoding())));
        if (facts.tags.count(key))
            return;
    }
}

// The comment without a description is the comment proper; others are
// private data of players (iTunNORM and the like).
void readComment(const TagLib::ID3v2::Tag &tag, MediaFacts &facts)
{
    const TagLib::ID3v2::FrameList &frames = tag.frameListMap()["COMM"];
    const TagLib::ID3v2::CommentsFrame *chosen = nullptr;
    for (const TagLib::ID3v2::Frame *f : frames) {
        const auto *comment = dynamic_cast<const TagLib::ID3v2::CommentsFrame *>(f);
        if (!comment || comment->text().isEmpty())
            continue;
        if (comment->description().isEmpty()) {
            chosen = comment;
            break;
        }
        if (!chosen)
            chosen = comment;
    }
    if (chosen)
        putText(facts, "comment", chosen->text(), isUnicode(static_cast<int>(chosen->textEncoding())));
}

void readPictures(const TagLib::ID3v2::Tag &tag, MediaFacts &facts)
{
    std::vector<EncodedPicture> pictures;
    size_t frontCover = 0;
    bool haveFrontCover = false;
    for (const TagLib::ID3v2::Frame *f : tag.frameListMap()["APIC"]) {
        const auto *apic = dynamic_cast<const TagLib::ID3v2::AttachedPictureFrame *>(f);
        // "-->" marks a link to a picture elsewhere, not a picture.
        if (!apic || apic->picture().isEmpty() || apic->mimeType() == "-->")
            continue;
        if (!haveFrontCover && apic->type() == TagLib::ID3v2::AttachedPictureFrame::FrontCover) {
            haveFrontCover = true;
            frontCover = pictures.size();
        }
        const ByteVector &data = apic->picture();
        pictures.push_back(EncodedPicture{std::vector<unsigned char>(data.begin(), data.end()), 0});
    }
    // Index 0 is what a player shows: the front cover, else the first picture.
    if (haveFrontCover) {
        const auto cover = pictures.begin() + long(frontCover);
        std::rotate(pictures.begin(), cover, cover + 1);
    }
    facts.pictures = std::move(pictures);
}

bool hasId3v2Header(TagSource &file)
{
    file.seek(0);
    const ByteVector h = file.readBlock(10);
    if (h.size() != 10 || !h.startsWith("ID3"))
        return false;
    const auto byte = [&h](int i) { return static_cast<unsigned char>(h[i]); };
    // Versions 2.2 to 2.4; the size is four 7-bit ("syncsafe") bytes.
    return byte(3) >= 2 && byte(3) <= 4 && byte(4) != 0xFF
        && (byte(6) | byte(7) | byte(8) | byte(9)) < 0x80;
}

void readId3v2(TagSource &file, MediaFacts &facts)
{
    const TagLib::ID3v2::Tag tag(&file, 0);
    readTextFrame(tag, "TIT2", "title", facts);
    readTextFrame(tag, "TPE1", "artist", facts);
    readTextFrame(tag, "TALB", "album", facts);
    // TagLib turns the v2.3 year frame (TYER) into the v2.4 one.
    readTextFrame(tag, "TDRC", "date", facts);
    readComment(tag, facts);
    readTextFrame(tag, "TCON", "genre", facts);
    readPictures(tag, facts);
}

bool readId3v1(TagSource &file, MediaFacts &facts)
{
    const long length = file.length();
    if (length < 128)
        return false;
    file.seek(length - 128);
    if (!file.readBlock(3).startsWith("TAG"))
        return false;
    const TagLib::ID3v1::Tag tag(&file, length - 128);
    putText(facts, "title_v1", tag.title(), false);
    putText(facts, "artist_v1", tag.artist(), false);
    putText(facts, "album_v1", tag.album(), false);
    if (tag.year() > 0)
        putText(facts, "date_v1", String::number(int(tag.year())), false);
    putText(facts, "comment_v1", tag.comment(), false);
    putText(facts, "genre_v1", TagLib::ID3v1::genre(int(tag.genreNumber())), false);
    return true;
}

} // namespace

void installTagStringHandlers()
{
    // Process-wide in TagLib and never released: install once and keep.
    static std::once_flag once;
    std::call_once(once, [] {
        static const RawId3v2Latin1 id3v2Handler;
        static const RawId3v1 id3v1Handler;
        TagLib::ID3v2::Tag::setLatin1StringHandler(&id3v2Handler);
        TagLib::ID3v1::Tag::setStringHandler(&id3v1Handler);
    });
}

namespace {

bool readId3Tags(TagLib::IOStream *stream, MediaFacts &facts)
{
    TagSource file(stream);
    bool found = false;
    if (hasId3v2Header(file)) {
        readId3v2(file, facts);
        found = true;
    }
    if (readId3v1(file, facts))
        found = true;
    return found;
}

} // namespace

bool readId3Tags(const MediaSource &source, MediaFacts &facts)
{
    installTagStringHandlers();
    if (source.inMemory()) {
        TagLib::ByteVectorStream stream(
            TagLib::ByteVector(reinterpret_cast<const char *>(source.data), unsigned(source.size)));
        return readId3Tags(&stream, facts);
    }
    TagLib::FileStream stream(source.path.c_str(), true);
    if (!stream.isOpen())
        return false;
    return readId3Tags(&stream, facts);
}

} // namespace metadatareader
} // namespace hostplatform
