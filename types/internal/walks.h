#pragma once

#include "common/shared/json_form.h"
#include "types/bitstream_type.h"
#include "types/nmos_parameters.h"
#include "types/video_timing.h"

// The `walk` of each record that is written both as a document of its own and as a part of another record's document.

namespace zel {

/// Reads an unknown text as `BITSTREAM_NONE`.
struct BitstreamText : EnumText<BitstreamType> {
  static void read(const Json::Value& json, BitstreamType::bitstream_t& type) {
    type = enumeratorOf<BitstreamType>(json.asString(), BitstreamType::BITSTREAM_NONE);
  }
};

template <class Io>
void walk(Io& io, const BitstreamType&) {
  io.reset("module", &BitstreamType::type, BitstreamText{});
}

template <class Io>
void walk(Io& io, const VideoTimingParameters&) {
  using P = VideoTimingParameters;
  io.keep("timing-mode", &P::timingMode, EnumText<P>{});
  io.ifSet("initBufDelay", &P::initBufDelay, P::kNotSet);
  io.ifSet("minWrRdPtrThresh", &P::minWrRdPtrThresh, P::kNotSet);
  io.ifSet("maxWrRdPtrThresh", &P::maxWrRdPtrThresh, P::kNotSet);
  io.ifSet("rtpPktsPerFrame", &P::rtpPktsPerFrame, P::kNotSet);
}

template <class Io>
void walk(Io& io, const NmosParameters&) {
  using P = NmosParameters;
  io.optionalBlock("nmos", [](auto& nmos) {
    nmos.keep("enable", &P::enable);
    nmos.keep("http-sdp-port", &P::httpSdpPort);
    nmos.keep("node-port", &P::nodePort);
    nmos.keep("query-port", &P::queryPort);
    nmos.keep("registration-port", &P::registrationPort);
    nmos.keep("node-name", &P::nodeName);
    nmos.keep("device-name", &P::deviceName);
    nmos.keep("advertisement-interface", &P::advertisementInterface);
    nmos.keep("slot-id", &P::slotId);
    nmos.keep("shelf-id", &P::shelfId);
    if constexpr (!Io::kDelta) nmos.constant("node-description", "Velmar node");
  });
}

}  // namespace zel
