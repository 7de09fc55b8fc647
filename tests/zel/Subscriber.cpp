#include "Subscriber.h"

#include "Devices.h"

bool IsReady(ZelProcess& subscriber) {
  for (int i = 0; i < 500 && !Contains(subscriber.Output(), "ready"); ++i) {
    if (RunZel({"pub", kDevice, "ready", "ready"}).status != 0) return false;
  }
  return Contains(subscriber.Output(), "ready");
}
