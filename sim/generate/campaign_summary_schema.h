// sim/generate/campaign_summary_schema.h
#pragma once

namespace brisko::lab {

// docs/schemas/campaign-summary.schema.json, as it was when the program was built.
[[nodiscard]] const char* campaignSummarySchemaText();

}  // namespace brisko::lab
