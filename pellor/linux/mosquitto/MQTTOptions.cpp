#include "pellor/linux/mosquitto/MQTTOptions.h"

namespace pellor {

MQTTOptions MQTTOptions::from(const Configuration& configuration) {
  return {*configuration.text("mqtt.host"), configuration.count("mqtt.port"), LargestDeviceMessage};
}

}  // namespace pellor
