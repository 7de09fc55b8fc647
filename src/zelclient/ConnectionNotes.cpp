#include "zelclient/ConnectionNotes.h"

#include "utils/Forever.h"

namespace libzel {

Counters& ConnectionNotes::OfProcess() {
  static Forever<Counters> counters;
  return *counters;
}

}  // namespace libzel
