#pragma once

// A decoded picture shared by reference between the decoder, the compositor and the frames handed out.

#include "ffmpeg/ffmpeg_ptr.hpp"
#include "morvane/engine/render/video_frame.hpp"

namespace morvane::engine {

struct DecodedPicture {
    ffmpeg::FramePtr frame;  // a reference of the decoder's output
    double seconds = 0.0;    // its presentation time from the start of the stream
};

}  // namespace morvane::engine
