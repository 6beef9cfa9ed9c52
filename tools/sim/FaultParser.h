#ifndef MORVIK_SIM_FAULTPARSER_H
#define MORVIK_SIM_FAULTPARSER_H

#include <string_view>

#include "Fault.h"

namespace MorvikSim {

// KIND@TIME[,key=value...], for instance "corrupt@10m,feature=routes,offset=0x100",
// "silent@15m,for=6m", "away@20m,for=2m,record=null", "chunk@30m,size=16K".
// Throws UsageError naming what is wrong.
Fault parseFault(std::string_view text);

}  // namespace MorvikSim

#endif
