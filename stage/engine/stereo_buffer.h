#pragma once

namespace stage {

/// Where the two channels of a stereo pair are written, one beside the other. The samples are the caller's.
struct StereoBuffer {
    float* left = nullptr;
    float* right = nullptr;
};

}  // namespace stage
