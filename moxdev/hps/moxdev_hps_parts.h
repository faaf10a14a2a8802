// The built-in HPS flash parts, in list order, generated from
// data/hps/parts.txt. Library sources only.
#pragma once

#include "moxdev/moxdev_hps_mgr.h"

#include <cstddef>

extern const MOXDEV_HPS_NAND_STRUCTURE MOXDEV_HPS_NAND_PARTS[];
extern const std::size_t MOXDEV_HPS_NAND_PARTS_COUNT;
extern const MOXDEV_HPS_SPI_STRUCTURE MOXDEV_HPS_SPI_PARTS[];
extern const std::size_t MOXDEV_HPS_SPI_PARTS_COUNT;
