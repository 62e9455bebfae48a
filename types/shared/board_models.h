#pragma once

#include <cstdint>

#include "types/board_model.h"
#include "types/internal/enum_texts.h"
#include "types/sysmgr_eth_types.h"

// The table of board models: everything that differs from one model to another.

namespace zel::models {

enum class VideoFormats {
  kNone,
  kSdi,
  kSdiAndHdmi,  ///< the HDMI formats only with the HDMI bitstream
};

/// How a board model carries streams twice when redundancy is enabled.
enum class Redundancy { kNone, kDualLink, kSinglePort };

/// The interfaces that carry the streams.
struct Traffic {
  const char* primary;
  const char* secondary;  ///< null: none
};

struct Streams {
  Redundancy redundancy;
  Traffic withRedundancy;
  Traffic withoutRedundancy;  ///< on purpose most models report their secondary interface here, too
};

/// An interface as the factory configures it. A static one has the address 192.168.0.100.
struct FactoryInterface {
  const char* eth = nullptr;
  EthMode::eth_mode_t mode = EthMode::ETH_MODE_STATIC;
  uint16_t vlanId = 0;
};

struct Row : EnumRow<BoardModelType::board_models_t> {
  const char* displayName;  ///< the name for people; irregular on purpose
  VideoFormats formats;
  Streams streams;
  FactoryInterface interfaces[4] = {};  ///< the unused ones at the end have no name
  /// The model runs on any host: its factory interfaces are the host's, and its label names the primary interface.
  bool runsOnAnyHost = false;
};

using M = BoardModelType;

constexpr auto kStatic = EthMode::ETH_MODE_STATIC;
constexpr auto kDhcp = EthMode::ETH_MODE_DHCP;

constexpr Streams kOverEth1{Redundancy::kNone, {"eth1", nullptr}, {"eth1", nullptr}};
constexpr Streams kOverEth12{Redundancy::kDualLink, {"eth1", "eth2"}, {"eth1", "eth2"}};
constexpr Streams kOverEth23{Redundancy::kDualLink, {"eth2", "eth3"}, {"eth2", "eth3"}};
constexpr Streams kOverVlans{Redundancy::kSinglePort, {"eth0.10", "eth0.20"}, {"eth0", nullptr}};
constexpr Streams kOverHost{Redundancy::kNone, {"enp2s0f0", nullptr}, {"enp2s0f0", nullptr}};  // without a label

inline constexpr Row kTable[] = {
    {{M::ORVEN_AES67, "ORVEN_AES67"},
     "ORVEN AES67",
     VideoFormats::kNone,
     kOverEth12,
     {{"eth0", kStatic}, {"eth1", kDhcp}, {"eth2", kDhcp}}},
    {{M::TRISK_AES67, "TRISK_AES67"},
     "TRISK AES67",
     VideoFormats::kNone,
     kOverEth12,
     {{"eth0", kStatic}, {"eth1", kDhcp}, {"eth2", kDhcp}}},
    {{M::ORVEN_AVB, "ORVEN_AVB"}, "ORVEN AVB", VideoFormats::kNone, kOverEth1, {{"eth0", kStatic}, {"eth1", kDhcp}}},
    {{M::KORVA, "KORVA", "TAVRO"},
     "KORVA",
     VideoFormats::kSdi,
     kOverEth23,
     {{"eth0", kDhcp}, {"eth1", kStatic}, {"eth2", kDhcp}, {"eth3", kDhcp}}},
    {{M::ORVEN_TESSA, "ORVEN_TESSA"},
     "ORVEN Tessa AES67",
     VideoFormats::kNone,
     kOverVlans,
     {{"eth0", kStatic}, {"eth0.10", kDhcp, 10}, {"eth0.20", kDhcp, 20}}},
    {{M::BRAVIK_AOIP, "BRAVIK_AOIP"},
     "Bravik AOIP",
     VideoFormats::kNone,
     kOverEth12,
     {{"eth0", kDhcp}, {"eth1", kStatic}, {"eth2", kDhcp}}},
    {{M::ORVEN_QUILL_IO, "ORVEN_QUILL_IO"},
     "ORVEN Quill IO",
     VideoFormats::kNone,
     kOverEth12,
     {{"eth0", kStatic}, {"eth1", kDhcp}}},
    {{M::NIMBRA_AES67, "NIMBRA_AES67"}, "NIMBRA", VideoFormats::kNone, kOverHost, {}, true},
    {{M::ZIRC, "ZIRC"},
     "ZIRC",
     VideoFormats::kSdiAndHdmi,
     kOverEth12,
     {{"eth0", kStatic}, {"eth1", kDhcp}, {"eth2", kDhcp}}},
    {{M::VELDA, "VELDA"}, "ORVEN VELDA", VideoFormats::kNone, kOverEth12},
    {{M::MERIX, "MERIX"},
     "MERIX",
     VideoFormats::kSdi,
     kOverEth12,
     {{"eth0", kStatic}, {"eth1", kDhcp}, {"eth2", kDhcp}}},
    {{M::PIXA_MADI, "PIXA_MADI"},
     "PIXA_MADI",
     VideoFormats::kNone,
     kOverEth12,
     {{"eth0", kStatic}, {"eth1", kDhcp}, {"eth2", kDhcp}}},
    {{M::PIXA_AES1616, "PIXA_AES1616"},
     "PIXA AES 16.16",
     VideoFormats::kNone,
     kOverEth12,
     {{"eth0", kStatic}, {"eth1", kDhcp}, {"eth2", kDhcp}}},
};

/// The row of a model; null for a value that is not a model's.
inline const Row* find(BoardModelType::board_models_t model) { return rowOf(kTable, model); }

}  // namespace zel::models
