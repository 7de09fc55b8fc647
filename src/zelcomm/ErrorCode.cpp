#include "zelcomm/ErrorCode.h"

#include <array>

namespace libzel {

namespace {

struct Row {
  int32_t code;
  const char* text;
};

constexpr const char* kUnknown = "Unknown error code";

constexpr std::array kRows = {
    Row{0x0000, "No Error"},
    Row{0x0001, "connect Success"},
    Row{0x0002, "connection pending"},
    Row{0x0003, "no connection"},
    Row{0x0004, "connect refuse"},
    Row{0x0005, "alaready disconnect"},
    Row{0x0006, "connect timeout"},
    Row{0x0007, "host unreachable"},
    Row{0x0008, "auth continue"},
    Row{0x1001, "invaild Zel Device Id"},
    Row{0x1002, "invaild Id Group"},
    Row{0x1003, "invaild Id Offset"},
    Row{0x1004, "Invalid packet length"},
    Row{0x1005, "invaild port,port is 1-65535"},
    Row{0x1006, "router port not register"},
    Row{0x1007, "router port alaready register"},
    Row{0x1008, "recv message timeout"},
    Row{0x1009, "unknown cmdId"},
    Row{0x100A, "unknown topic"},
    Row{0x100B, "no support protocol"},
    Row{0x100C, "packet length too small"},
    Row{0x100D, "packet length too long"},
    Row{0x100E, "serialized error"},
    Row{0x100F, "deserialized error"},
    Row{0x1010, "zel header length not match from buff recv"},
    Row{0x1011, "send message error"},
    Row{0x1012, "port 1~500 system reserved"},
    Row{0x1013, "message invokeId not match"},
    Row{0x2001, "invaild handler"},
    Row{0x2002, "invaild netadapter"},
    Row{0x2003, "init resource fail"},
    Row{0x2004, "invaild input param"},
    Row{0x2005, "zel server not runing"},
    Row{0x2006, "invaild request cmd"},
    Row{0x2007, "invaild buff length"},
    Row{0x2008, "no memory"},
    Row{0x2009, "disk is full"},
    Row{0x3000, "create file fail"},
    Row{0x3001, "open file fail"},
    Row{0x3002, "file not exist"},
    Row{0x3003, "read file buffer fail"},
    Row{0x3004, "write file buffer fail"},
    Row{0x3005, "invaild file handler"},
    Row{0x3006, "transfer fault,network error"},
    Row{0x4001, "component not register"},
    Row{0x4002, "connect zelserver timeout"},
    Row{0x4003, "same component name already register,zelserver refuse register"},
    Row{0x4004, "component is offline"},
    Row{0x4005, "component name is illegal"},
};

thread_local int32_t t_errno = 0;

}  // namespace

const char* ErrorCodeText(int32_t code) {
  for (const Row& row : kRows) {
    if (row.code == code) return row.text;
  }
  return kUnknown;
}

int32_t GetErrno() { return t_errno; }
void SetErrno(int32_t code) { t_errno = code; }

}  // namespace libzel
