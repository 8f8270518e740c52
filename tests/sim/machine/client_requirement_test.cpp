#include "sim/machine/client_requirement.h"

#include <string>

#include "support/testing.h"

namespace brisko::virtual_mac::client_requirement_test {
namespace {

std::string requirement(const std::string& identifier, const std::string& team) {
  return "anchor apple generic and identifier \"" + identifier + "\" and certificate leaf[subject.OU] = \"" +
         team + "\"";
}
const std::string ours = requirement("com.brisko.Brisko", std::string(appTeam));

TEST(ClientRequirement, admitsOnlyTheApp) {
  EXPECT_TRUE(meets(findClient("app")->signature, ours));
  EXPECT_FALSE(meets(findClient("wrong-team")->signature, ours));
  EXPECT_FALSE(meets(findClient("wrong-app")->signature, ours));
  EXPECT_FALSE(meets(findClient("unsigned")->signature, ours));
}

TEST(ClientRequirement, checksTeamIdentifierAndAnchor) {
  const ClientSignature app = findClient("app")->signature;
  EXPECT_TRUE(meets(app, requirement(app.identifier, app.team)));
  EXPECT_FALSE(meets({false, app.team, app.identifier}, ours)) << "a self-made certificate";
  EXPECT_FALSE(meets({true, "", app.identifier}, ours));
  EXPECT_FALSE(meets({true, app.team, ""}, ours));
  EXPECT_FALSE(meets({true, app.team + "X", app.identifier}, ours));
  EXPECT_FALSE(meets({true, app.team, app.identifier + ".Helper"}, ours));
  EXPECT_FALSE(meets({true, app.team, "com.brisko.brisko"}, ours)) << "names are case-sensitive";
}

TEST(ClientRequirement, admitsNobodyInAnyOtherForm) {
  const ClientSignature app = findClient("app")->signature;
  for (const std::string& text :
       {std::string(), std::string("anchor apple generic"),
        std::string("anchor apple generic and identifier \"com.brisko.Brisko\""), " " + ours, ours + " ",
        ours + ours, ours.substr(0, ours.size() - 1), ours.substr(1),
        "anchor apple and identifier \"com.brisko.Brisko\" and certificate leaf[subject.OU] = \"" + app.team +
            "\"",
        "identifier \"com.brisko.Brisko\" and anchor apple generic and certificate leaf[subject.OU] = \"" +
            app.team + "\"",
        "anchor apple generic and identifier com.brisko.Brisko and certificate leaf[subject.OU] = " +
            app.team,
        "anchor apple generic and identifier \"com.brisko.Brisko\"  and certificate leaf[subject.OU] = \"" +
            app.team + "\""}) {
    EXPECT_FALSE(meets(app, text)) << text;
  }
}

TEST(ClientRequirement, admitsNobodyWithAnEmptyTextOrAnEscape) {
  EXPECT_FALSE(meets({true, "", "com.brisko.Brisko"}, requirement("com.brisko.Brisko", "")));
  EXPECT_FALSE(meets({true, std::string(appTeam), ""}, requirement("", std::string(appTeam))));
  EXPECT_FALSE(meets({true, "A\\", "com.brisko.Brisko"}, requirement("com.brisko.Brisko", "A\\")));
}

TEST(KnownClients, areFoundByName) {
  EXPECT_EQ(knownClients().size(), 4U);
  for (const KnownClient& client : knownClients()) EXPECT_EQ(findClient(client.name), &client);
  EXPECT_EQ(findClient("nobody"), nullptr);
}

}  // namespace
}  // namespace brisko::virtual_mac::client_requirement_test
