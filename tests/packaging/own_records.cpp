// More classes of such an application: see own_helpers.cpp.

#include <string>

namespace Json {
class Value;
}

class IJsonSerializable {
 public:
  virtual std::string text() const;
  virtual ~IJsonSerializable();

 private:
  std::string text_ = "oops";
};
std::string IJsonSerializable::text() const { return text_; }
IJsonSerializable::~IJsonSerializable() = default;

class Vlan : public IJsonSerializable {
 public:
  std::string text() const override;
  void Serialize(Json::Value& value) const;
  int Deserialize(Json::Value& value);
};
std::string Vlan::text() const { return "oops"; }
void Vlan::Serialize(Json::Value& /*value*/) const {}
int Vlan::Deserialize(Json::Value& /*value*/) { return -1; }

class EthMode : public Vlan {
 public:
  std::string text() const override;
};
std::string EthMode::text() const { return "oops"; }

class SysParameters {
 public:
  virtual ~SysParameters();
  virtual int Deserialize(Json::Value& value);
};
SysParameters::~SysParameters() = default;
int SysParameters::Deserialize(Json::Value& /*value*/) { return -1; }

class BoardModel {
 public:
  virtual ~BoardModel();
  void initializeSupportedVideoFormatList();
};
BoardModel::~BoardModel() = default;
void BoardModel::initializeSupportedVideoFormatList() {}

class ZmqUtils {
 public:
  ZmqUtils();
  static ZmqUtils& getInstance();
  int* getContext();

 private:
  int* context_ = nullptr;
};
ZmqUtils::ZmqUtils() = default;
ZmqUtils& ZmqUtils::getInstance() {
  static ZmqUtils utils;
  return utils;
}
int* ZmqUtils::getContext() { return context_; }

class SysMgrClient {
 public:
  SysMgrClient();
  virtual ~SysMgrClient();
  int getStoredParameters(SysParameters& parameters);
};
SysMgrClient::SysMgrClient() = default;
SysMgrClient::~SysMgrClient() = default;
int SysMgrClient::getStoredParameters(SysParameters& /*parameters*/) { return -1; }
