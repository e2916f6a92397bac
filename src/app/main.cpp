// SPDX-License-Identifier: Apache-2.0
#include "app/sentrel_mac_app.h"

int main(int /*argc*/, char** argv) {
  // Static, so that it outlives the shared instances, which are made later and need the Qt application to
  // end.
  static sentrel::SentrelMacApp app(argv);
  return app.run();
}
