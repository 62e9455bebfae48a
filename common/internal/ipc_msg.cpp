#include "common/ipc_msg.h"

IpcMsg::IpcMsg(unsigned int id) : id_(id) {}

IpcMsg::IpcMsg(unsigned int id, const Json::Value& body) : id_(id), body_(body) {}

IpcMsg::~IpcMsg() = default;
