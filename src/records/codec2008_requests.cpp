// The compiled 2008 codecs of the request layouts: a translation unit of their own, so that
// the two tables build side by side.
#include "records/codec2008_steps.h"
#include "records/request_layouts.h"

namespace trdcomp::records::steps2008 {

const Codec& requestCodec(std::size_t index) {
  static constexpr auto kCodecs =
      compile<kRequestLayouts>(std::make_index_sequence<kRequestLayouts.size()>{});
  return kCodecs[index];
}

}  // namespace trdcomp::records::steps2008
