#pragma once

namespace oxelo {

// The two 4:2:0 layouts an encoder takes: NV12 (a luma plane, then one plane
// of interleaved Cb, Cr pairs) and I420 (luma, then Cb, then Cr).
enum class YuvLayout { nv12, i420 };
// The colour matrix and range the samples were made with.
enum class YuvMatrix { bt601, bt709 };

}  // namespace oxelo
