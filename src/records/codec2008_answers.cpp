// The compiled 2008 codecs of the answer layouts: a translation unit of their own, so that
// the two tables build side by side.
#include "records/answer_layouts.h"
#include "records/codec2008_steps.h"

namespace trdcomp::records::steps2008 {

const Codec& answerCodec(std::size_t index) {
  static constexpr auto kCodecs =
      compile<kAnswerLayouts>(std::make_index_sequence<kAnswerLayouts.size()>{});
  return kCodecs[index];
}

}  // namespace trdcomp::records::steps2008
