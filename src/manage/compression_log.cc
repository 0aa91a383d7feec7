#include "manage/compression_log.h"

#include <algorithm>

#include "util/format.h"

namespace trevix {

std::string CompressionLogHeader(Date now) {
    return "<html><head><title>Trevix Compress Attachments Log " + FormatGeneralDate(now) +
           "</title></head><body>"
           "<font size='1' face='Arial'><table border='1' "
           "style='border-collapse: collapse;font-family:Arial,Geneva,Helvetica;font-size=8pt' "
           "bordercolor='#808080' width='100%'><tr bgcolor='#C0C0C0'><td width='44%'>"
           "<strong>Folder</strong></td><td width='16%'><strong>Compressed "
           "Attachments</strong></td>"
           "<td width='18%'><strong>Original bytes</strong></td>"
           "<td width='18%'><strong>Compressed bytes</strong></td>"
           "<td width='4%' align='right'><strong>%</strong></td></tr>";
}

std::string CompressionLogRow(const std::string& folder_path, std::int32_t count,
                              std::int32_t original_bytes, std::int32_t compressed_bytes,
                              std::int32_t percentage) {
    return "<tr><td width='44%'>" + folder_path + "</td><td width='16%' align='right'>" +
           FormatThousands(count) + "</td><td width='18%' align='right'>" +
           FormatThousands(original_bytes) + "</td><td width='18%' align='right'>" +
           FormatThousands(compressed_bytes) +
           "</td>"
           "<td width='4%' align='right'>" +
           std::to_string(percentage) + "</td></tr>";
}

std::string CompressionLogTotal(std::int32_t count, std::int32_t original_bytes,
                                std::int32_t compressed_bytes, std::int32_t percentage) {
    return "<tr><td width='44%'>Total</td><td width='16%' align='right'>" + FormatThousands(count) +
           "</td><td width='18%' align='right'>" + FormatThousands(original_bytes) +
           "</td><td width='18%' align='right'>" + FormatThousands(compressed_bytes) +
           "</td>"
           "<td width='4%' align='right'>" +
           std::to_string(percentage) + "</td></tr>";
}

std::string CompressionLogClosing(Date now) {
    return "</table><br>Completed " + FormatGeneralDate(now) + "</body></html>";
}

std::int32_t SavedPercentage(std::int32_t original_bytes, std::int32_t compressed_bytes) {
    if (original_bytes <= 0) return 0;
    const double share = 1.0 - static_cast<double>(compressed_bytes) / original_bytes;
    return static_cast<std::int32_t>(std::max(0.0, share * 100.0));
}

}  // namespace trevix
