// Property tags: the high half of a tag is the property, the low half its type (0x0003 32-bit
// integer, 0x000B Boolean, 0x001E text, 0x0040 time, 0x0102 bytes).
#pragma once

#include <cstdint>

namespace trevix {

using PropertyTag = std::uint32_t;

inline constexpr PropertyTag kTagMessageClass = 0x001A001E;
inline constexpr PropertyTag kTagSubject = 0x0037001E;
inline constexpr PropertyTag kTagSenderAddressType = 0x0C1E001E;
inline constexpr PropertyTag kTagDisplayCc = 0x0E03001E;
inline constexpr PropertyTag kTagDisplayTo = 0x0E04001E;
inline constexpr PropertyTag kTagDeliveryTime = 0x0E060040;
inline constexpr PropertyTag kTagHasAttachments = 0x0E1B000B;
inline constexpr PropertyTag kTagAttachmentSize = 0x0E200003;
inline constexpr PropertyTag kTagArticleNumber = 0x0E230003;
inline constexpr PropertyTag kTagEntryId = 0x0FFF0102;
inline constexpr PropertyTag kTagRtfBody = 0x10090102;
inline constexpr PropertyTag kTagDisplayName = 0x3001001E;
inline constexpr PropertyTag kTagLastModification = 0x30080040;
inline constexpr PropertyTag kTagContainerClass = 0x3613001E;
inline constexpr PropertyTag kTagAttachmentData = 0x37010102;
inline constexpr PropertyTag kTagAttachmentExtension = 0x3703001E;
inline constexpr PropertyTag kTagAttachmentShortName = 0x3704001E;
inline constexpr PropertyTag kTagAttachmentMethod = 0x37050003;
inline constexpr PropertyTag kTagAttachmentLongName = 0x3707001E;
inline constexpr PropertyTag kTagAttachmentRendering = 0x37090102;
inline constexpr PropertyTag kTagAttachmentContentId = 0x3712001E;
inline constexpr PropertyTag kTagSmtpAddress = 0x39FE001E;
inline constexpr PropertyTag kTagLongTermEntryId = 0x66700102;

// Types for named properties.
inline constexpr std::uint16_t kTypeInteger16 = 0x0002;
inline constexpr std::uint16_t kTypeInteger32 = 0x0003;
inline constexpr std::uint16_t kTypeBoolean = 0x000B;
inline constexpr std::uint16_t kTypeString8 = 0x001E;
inline constexpr std::uint16_t kTypeTime = 0x0040;

// The property set of public, named properties.
inline constexpr const char* kPublicStrings = "{00020329-0000-0000-C000-000000000046}";

}  // namespace trevix
