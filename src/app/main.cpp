// SPDX-License-Identifier: Apache-2.0
#include "app/sentrel_mac_app.h"

int main(int /*argc*/, char** argv) {
  sentrel::SentrelMacApp app(argv);
  return app.run();
}
