// orvic-id3writer: writes ID3 tags with exact bytes into an MP3 file.
//
// Makes the test media that legacy taggers produce and that ordinary tools
// cannot: ID3v2 text frames flagged Latin-1 but holding GBK or other legacy
// bytes, and ID3v1 fields in a legacy charset. Used by scripts/make-samples.sh.
#include <taglib/attachedpictureframe.h>
#include <taglib/commentsframe.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>
#include <taglib/textidentificationframe.h>
#include <taglib/tfilestream.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using TagLib::ByteVector;
using TagLib::String;

const char kUsage[] =
    "usage: orvic-id3writer FILE [options]\n"
    "Removes every tag from the MP3 FILE, then writes the ones asked for.\n"
    "  --v2-version 3|4       ID3v2 revision (default 3)\n"
    "  --latin1 ID=HEX        ID3v2 text frame ID (TIT2, TPE1, TALB, TDRC, TCON, or COMM\n"
    "                         for the comment) flagged Latin-1, holding the bytes HEX\n"
    "  --unicode ID=TEXT      the same frame holding TEXT (given in UTF-8), encoded\n"
    "                         UTF-16 for ID3v2.3 and UTF-8 for ID3v2.4\n"
    "  --picture TYPE=FILE    APIC frame of picture type TYPE (3 = front cover)\n"
    "  --v1 FIELD=HEX         ID3v1 field (title, artist, album, comment) holding HEX\n"
    "  --v1-year N            ID3v1 year\n"
    "  --v1-genre N           ID3v1 genre number\n";

[[noreturn]] void fail(const std::string &message)
{
    fprintf(stderr, "orvic-id3writer: %s\n%s", message.c_str(), kUsage);
    exit(2);
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

ByteVector fromHex(const std::string &hex)
{
    if (hex.size() % 2 != 0)
        fail("odd number of hex digits: " + hex);
    ByteVector bytes;
    for (size_t i = 0; i < hex.size(); i += 2) {
        const int high = hexDigit(hex[i]);
        const int low = hexDigit(hex[i + 1]);
        if (high < 0 || low < 0)
            fail("not a hex digit in: " + hex);
        bytes.append(char(high * 16 + low));
    }
    return bytes;
}

// The exact bytes as a TagLib string: one Latin-1 code point per byte, which
// TagLib renders back byte for byte.
String rawString(const std::string &hex)
{
    return String(fromHex(hex), String::Latin1);
}

std::pair<std::string, std::string> splitAssignment(const std::string &arg)
{
    const size_t eq = arg.find('=');
    if (eq == std::string::npos || eq == 0)
        fail("expected NAME=VALUE, got: " + arg);
    return {arg.substr(0, eq), arg.substr(eq + 1)};
}

ByteVector readFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        fail("cannot read " + path);
    const std::vector<char> data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return ByteVector(data.data(), unsigned(data.size()));
}

String mimeTypeOf(const ByteVector &data)
{
    if (data.startsWith("\xff\xd8\xff"))
        return "image/jpeg";
    if (data.startsWith("\x89PNG"))
        return "image/png";
    return "application/octet-stream";
}

struct Request {
    TagLib::ID3v2::Version version = TagLib::ID3v2::v3;
    std::vector<TagLib::ID3v2::Frame *> frames; // owned until handed to the tag
    std::vector<TagLib::ID3v2::Frame *> unicodeFrames;
    bool wantV2 = false;
    bool wantV1 = false;
    String v1Title, v1Artist, v1Album, v1Comment;
    unsigned v1Year = 0;
    unsigned v1Genre = 255;
};

TagLib::ID3v2::Frame *textFrame(const std::string &id, const String &text, String::Type encoding)
{
    if (id == "COMM") {
        auto *comment = new TagLib::ID3v2::CommentsFrame(encoding);
        comment->setLanguage("und");
        comment->setText(text);
        return comment;
    }
    if (id.size() != 4 || id[0] != 'T')
        fail("not a text frame: " + id);
    auto *frame = new TagLib::ID3v2::TextIdentificationFrame(ByteVector(id.c_str()), encoding);
    frame->setText(text);
    return frame;
}

void setEncoding(TagLib::ID3v2::Frame *frame, String::Type encoding)
{
    if (auto *text = dynamic_cast<TagLib::ID3v2::TextIdentificationFrame *>(frame))
        text->setTextEncoding(encoding);
    else if (auto *comment = dynamic_cast<TagLib::ID3v2::CommentsFrame *>(frame))
        comment->setTextEncoding(encoding);
}

void setV1Field(Request &r, const std::string &field, const String &value)
{
    if (field == "title")
        r.v1Title = value;
    else if (field == "artist")
        r.v1Artist = value;
    else if (field == "album")
        r.v1Album = value;
    else if (field == "comment")
        r.v1Comment = value;
    else
        fail("unknown ID3v1 field: " + field);
    r.wantV1 = true;
}

Request parse(int argc, char **argv)
{
    Request r;
    for (int i = 2; i < argc; ++i) {
        const std::string option = argv[i];
        if (i + 1 >= argc)
            fail("missing value for " + option);
        const std::string value = argv[++i];
        if (option == "--v2-version") {
            if (value != "3" && value != "4")
                fail("ID3v2 revision must be 3 or 4");
            r.version = value == "3" ? TagLib::ID3v2::v3 : TagLib::ID3v2::v4;
        } else if (option == "--latin1") {
            const auto a = splitAssignment(value);
            r.frames.push_back(textFrame(a.first, rawString(a.second), String::Latin1));
            r.wantV2 = true;
        } else if (option == "--unicode") {
            const auto a = splitAssignment(value);
            r.frames.push_back(textFrame(a.first, String(a.second, String::UTF8), String::UTF16));
            r.unicodeFrames.push_back(r.frames.back());
            r.wantV2 = true;
        } else if (option == "--picture") {
            const auto a = splitAssignment(value);
            auto *picture = new TagLib::ID3v2::AttachedPictureFrame;
            const ByteVector data = readFile(a.second);
            picture->setType(TagLib::ID3v2::AttachedPictureFrame::Type(atoi(a.first.c_str())));
            picture->setMimeType(mimeTypeOf(data));
            picture->setPicture(data);
            r.frames.push_back(picture);
            r.wantV2 = true;
        } else if (option == "--v1") {
            const auto a = splitAssignment(value);
            setV1Field(r, a.first, rawString(a.second));
        } else if (option == "--v1-year") {
            r.v1Year = unsigned(atoi(value.c_str()));
            r.wantV1 = true;
        } else if (option == "--v1-genre") {
            r.v1Genre = unsigned(atoi(value.c_str()));
            r.wantV1 = true;
        } else {
            fail("unknown option " + option);
        }
    }
    // The revision may follow the frames on the command line.
    if (r.version == TagLib::ID3v2::v4) {
        for (TagLib::ID3v2::Frame *frame : r.unicodeFrames)
            setEncoding(frame, String::UTF8);
    }
    return r;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2 || argv[1][0] == '-')
        fail("no file given");
    Request r = parse(argc, argv);

    TagLib::MPEG::File file(argv[1], false);
    if (!file.isValid() || file.readOnly())
        fail(std::string("cannot open for writing: ") + argv[1]);
    file.strip(TagLib::MPEG::File::AllTags);

    int tags = TagLib::MPEG::File::NoTags;
    if (r.wantV2) {
        TagLib::ID3v2::Tag *tag = file.ID3v2Tag(true);
        for (TagLib::ID3v2::Frame *frame : r.frames)
            tag->addFrame(frame);
        tags |= TagLib::MPEG::File::ID3v2;
    }
    if (r.wantV1) {
        TagLib::ID3v1::Tag *tag = file.ID3v1Tag(true);
        tag->setTitle(r.v1Title);
        tag->setArtist(r.v1Artist);
        tag->setAlbum(r.v1Album);
        tag->setComment(r.v1Comment);
        tag->setYear(r.v1Year);
        tag->setGenreNumber(r.v1Genre);
        tags |= TagLib::MPEG::File::ID3v1;
    }
    if (tags == TagLib::MPEG::File::NoTags)
        return 0;
    // DoNotDuplicate: each tag holds exactly what was asked, nothing copied
    // from the other.
    if (!file.save(tags, TagLib::File::StripOthers, r.version, TagLib::File::DoNotDuplicate)) {
        fprintf(stderr, "orvic-id3writer: saving %s failed\n", argv[1]);
        return 1;
    }
    return 0;
}
