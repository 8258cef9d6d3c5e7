// The camera in tests: its commands, what a capture leaves in the journal, and the two pictures.
#pragma once

#include <string>

#include "simulator/models/capture_device.h"
#include "tests/phone/phone_test.h"

constexpr uint32_t SELF_TEST = 0;
constexpr uint32_t CAPTURE_BLEMISH = 10;
constexpr uint32_t DELETE_BLEMISH = 12;
constexpr uint32_t CAPTURE_FOCUS = 20;
constexpr uint32_t DELETE_FOCUS = 22;

constexpr char CAMERA[] = "/dev/v4l2/capture0";
const std::string PHOTOS = "/usr/share/usr_data/Photos";
const std::string BLEMISH = PHOTOS + "/BlemishTest.jpg";
const std::string FOCUS = PHOTOS + "/FocusTest.jpg";

class CameraTest : public PhoneTest {
 protected:
  CameraTest();

  int32_t Camera(uint32_t subcommand, uint32_t width = 0, uint32_t height = 0, uint32_t rotation = 0);
  void Change(const std::function<void(simulator::CaptureDevice::State&)>& change);
  simulator::CaptureDevice::Frame LastFrame();

  // What a whole capture leaves in the journal up to its frame, without the format that the driver reports.
  Lines CaptureLines(uint32_t width, uint32_t height, const simulator::CaptureDevice::Format& before);
  // The same for the self-test.
  Lines SelfTestLines(const simulator::CaptureDevice::Format& before);
};

// The journal's line for setting one of the sensor's controls.
std::string ControlLine(uint32_t id, uint32_t value);
