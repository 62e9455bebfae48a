// Classes of an application that knows nothing of the library's: the same names, the same operations, other members.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

class IpAddress {
 public:
  std::string toString() const;
  int setAddress(const std::string& text);

 private:
  std::string text_ = "oops";
};
std::string IpAddress::toString() const { return text_; }
int IpAddress::setAddress(const std::string& text) {
  text_ = text;
  return 0;
}

class Logger {
 public:
  static Logger* getInstance();
  Logger* next() { return next_; }

 private:
  Logger* next_ = nullptr;
  std::map<int, std::string> lines_;
};
Logger* Logger::getInstance() {
  static Logger logger;
  return logger.next() ? logger.next() : &logger;
}

class IpcMsg {
 public:
  explicit IpcMsg(unsigned int size);
  ~IpcMsg();

 private:
  std::vector<char> bytes_;
};
IpcMsg::IpcMsg(unsigned int size) : bytes_(size) {}
IpcMsg::~IpcMsg() = default;

class EthBasicInfo {
 public:
  virtual ~EthBasicInfo();
  virtual int speed() const;

 private:
  std::string name_ = "oops";
};
EthBasicInfo::~EthBasicInfo() = default;
int EthBasicInfo::speed() const { return -1; }

class SfpInfo {
 public:
  virtual ~SfpInfo();
  virtual int speed() const;
};
SfpInfo::~SfpInfo() = default;
int SfpInfo::speed() const { return -1; }

class VideoFormat {
 public:
  virtual int width() const;
  virtual int height() const;
  virtual ~VideoFormat();
};
int VideoFormat::width() const { return -1; }
int VideoFormat::height() const { return -1; }
VideoFormat::~VideoFormat() = default;

class WhiteListEntry {
 public:
  WhiteListEntry();
  virtual int hits() const;
  virtual ~WhiteListEntry();

 private:
  std::vector<std::string> names_;
};
WhiteListEntry::WhiteListEntry() : names_(100, "oops") {}
int WhiteListEntry::hits() const { return -1; }
WhiteListEntry::~WhiteListEntry() = default;
