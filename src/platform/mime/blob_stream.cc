#include "platform/mime/blob_stream.h"

#include <string>

namespace trevix::mime {
namespace {

constexpr std::size_t kBufferBytes = std::size_t{64} * 1024;

// The instance as GObject allocates it; `state` is made and deleted by hand.
struct StreamState {
    Blob blob;
    std::string buffer;
    std::uint64_t buffer_begin = 0;
    bool failed = false;
};

struct BlobStream {
    GMimeStream parent;
    StreamState* state;
};

struct BlobStreamClass {
    GMimeStreamClass parent;
};

BlobStream* Self(gpointer stream) {
    return static_cast<BlobStream*>(stream);
}

gint64 EndOf(GMimeStream* stream) {
    return stream->bound_end >= 0 ? stream->bound_end
                                  : static_cast<gint64>(Self(stream)->state->blob.size_bytes());
}

bool Refill(StreamState& state, std::uint64_t offset) {
    const std::uint64_t size = state.blob.size_bytes();
    state.buffer.resize(
        static_cast<std::size_t>(std::min<std::uint64_t>(kBufferBytes, size - offset)));
    state.buffer_begin = offset;
    if (state.blob.ReadAt(offset, state.buffer.data(), state.buffer.size()).ok()) return true;
    state.buffer.clear();
    state.failed = true;
    return false;
}

ssize_t Read(GMimeStream* stream, char* target, size_t count) {
    StreamState& state = *Self(stream)->state;
    const gint64 left = EndOf(stream) - stream->position;
    if (left <= 0 || count == 0) return 0;
    const auto offset = static_cast<std::uint64_t>(stream->position);
    if (offset < state.buffer_begin || offset >= state.buffer_begin + state.buffer.size()) {
        if (!Refill(state, offset)) return -1;
    }
    const auto inside = static_cast<std::size_t>(offset - state.buffer_begin);
    const std::size_t take =
        std::min({count, static_cast<std::size_t>(left), state.buffer.size() - inside});
    std::memcpy(target, state.buffer.data() + inside, take);
    stream->position += static_cast<gint64>(take);
    return static_cast<ssize_t>(take);
}

ssize_t Write(GMimeStream*, const char*, size_t) {
    return -1;
}

int Succeed(GMimeStream*) {
    return 0;
}

gboolean AtEnd(GMimeStream* stream) {
    return stream->position >= EndOf(stream) || Self(stream)->state->failed ? TRUE : FALSE;
}

int Reset(GMimeStream* stream) {
    stream->position = stream->bound_start;
    return 0;
}

gint64 Seek(GMimeStream* stream, gint64 offset, GMimeSeekWhence whence) {
    gint64 target = offset;
    if (whence == GMIME_STREAM_SEEK_CUR) target += stream->position;
    if (whence == GMIME_STREAM_SEEK_END) target += EndOf(stream);
    if (target < stream->bound_start || target > EndOf(stream)) return -1;
    stream->position = target;
    return target;
}

gint64 Tell(GMimeStream* stream) {
    return stream->position;
}

gint64 Length(GMimeStream* stream) {
    return EndOf(stream) - stream->bound_start;
}

GMimeStream* Substream(GMimeStream* stream, gint64 start, gint64 end);

void Finalize(GObject* object) {
    delete Self(object)->state;
    Self(object)->state = nullptr;
    G_OBJECT_CLASS(g_type_class_peek_parent(G_OBJECT_GET_CLASS(object)))->finalize(object);
}

void InitClass(gpointer klass, gpointer) {
    auto* stream_class = static_cast<GMimeStreamClass*>(klass);
    stream_class->read = Read;
    stream_class->write = Write;
    stream_class->flush = Succeed;
    stream_class->close = Succeed;
    stream_class->eos = AtEnd;
    stream_class->reset = Reset;
    stream_class->seek = Seek;
    stream_class->tell = Tell;
    stream_class->length = Length;
    stream_class->substream = Substream;
    static_cast<GObjectClass*>(klass)->finalize = Finalize;
}

void InitInstance(GTypeInstance* instance, gpointer) {
    Self(instance)->state = new StreamState();
}

GType StreamType() {
    static const GType type = [] {
        GTypeInfo info{};
        info.class_size = sizeof(BlobStreamClass);
        info.class_init = InitClass;
        info.instance_size = sizeof(BlobStream);
        info.instance_init = InitInstance;
        return g_type_register_static(g_mime_stream_get_type(), "TrevixBlobStream", &info,
                                      GTypeFlags{});
    }();
    return type;
}

GMimeStream* Make(const Blob& blob, gint64 start, gint64 end) {
    auto* stream = static_cast<GMimeStream*>(g_object_new(StreamType(), nullptr));
    g_mime_stream_construct(stream, start, end);
    Self(stream)->state->blob = blob;
    return stream;
}

GMimeStream* Substream(GMimeStream* stream, gint64 start, gint64 end) {
    return Make(Self(stream)->state->blob, start, end);
}

}  // namespace

GMimeStream* NewBlobStream(const Blob& blob) {
    return Make(blob, 0, static_cast<gint64>(blob.size_bytes()));
}

bool BlobStreamFailed(GMimeStream* stream) {
    return Self(stream)->state->failed;
}

}  // namespace trevix::mime
