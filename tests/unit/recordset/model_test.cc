// Random work on a record set, compared step by step with a plain list of records.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "bytes.h"
#include "platform/recordset/factory.h"

namespace trevix::recordset {
namespace {

struct ModelRow {
    int number = 0;  // never repeats
    int key = 0;
    std::string text;
};

class Model : public testing::TestWithParam<unsigned> {
 protected:
    void SetUp() override {
        random_.seed(GetParam());
        Factory factory;
        auto made = factory.CreateRecordSet();
        set_ = std::move(made).value();
        ASSERT_TRUE(set_->Append("Number", FieldType::kInteger, 0, kFieldUnspecified).ok());
        ASSERT_TRUE(set_->Append("Key", FieldType::kSmallInt, 0, kFieldUnspecified).ok());
        ASSERT_TRUE(set_->Append("Text", FieldType::kBstr, 0, kFieldUnspecified).ok());
        ASSERT_TRUE(set_->Open().ok());
    }

    int Below(int end) { return static_cast<int>(random_() % static_cast<unsigned>(end)); }
    std::string RandomText() {
        std::string text = "text " + std::to_string(Below(30));
        if (Below(2) == 0) text[0] = 'T';
        return text;
    }

    void AddRow() {
        const ModelRow row{next_number_++, Below(12), RandomText()};
        ASSERT_TRUE(set_->AddNew().ok());
        ASSERT_TRUE(set_->Set("Number", std::int32_t{row.number}).ok());
        ASSERT_TRUE(set_->Set("Key", static_cast<std::int16_t>(row.key)).ok());
        ASSERT_TRUE(set_->Set("Text", row.text).ok());
        if (Below(10) == 0) {
            ASSERT_TRUE(set_->CancelUpdate().ok());
            return;
        }
        ASSERT_TRUE(set_->Update().ok());
        rows_.push_back(row);
    }

    // The records of one key, or those of one text; numbers in order.
    void CheckFilter() {
        std::vector<int> expected;
        std::string criterion;
        if (Below(2) == 0) {
            const int key = Below(13);
            criterion = "Key=" + std::to_string(key);
            for (const ModelRow& row : rows_) {
                if (row.key == key) expected.push_back(row.number);
            }
        } else {
            const std::string text = RandomText();
            criterion = "Text='" + text + "'";
            for (const ModelRow& row : rows_) {
                if (row.text.substr(1) == text.substr(1)) expected.push_back(row.number);
            }
        }
        ASSERT_TRUE(set_->SetFilter(criterion).ok());
        ASSERT_EQ(set_->RecordCount(), static_cast<std::int64_t>(expected.size()));
        ASSERT_EQ(Numbers(), expected) << criterion;
    }

    std::vector<int> Numbers() {
        std::vector<int> numbers;
        Drop(set_->MoveFirst());  // refused by an empty set
        for (; !set_->Eof(); Drop(set_->MoveNext()))
            numbers.push_back(CurrentNumber());
        return numbers;
    }
    int CurrentNumber() const { return std::get<std::int32_t>(set_->Get("Number").value()); }
    auto RowOf(int number) {
        return std::find_if(rows_.begin(), rows_.end(),
                            [number](const ModelRow& row) { return row.number == number; });
    }

    void DeleteSome() {
        CheckFilter();
        Drop(set_->MoveFirst());  // refused by an empty set
        while (!set_->Eof()) {
            if (Below(3) > 0) {
                rows_.erase(RowOf(CurrentNumber()));
                ASSERT_TRUE(set_->Delete().ok());
            }
            ASSERT_TRUE(set_->MoveNext().ok());
        }
    }

    void ChangeSome() {
        CheckFilter();
        Drop(set_->MoveFirst());  // refused by an empty set
        while (!set_->Eof()) {
            ModelRow& row = *RowOf(CurrentNumber());
            row.key = Below(12);
            ASSERT_TRUE(set_->Set("Key", static_cast<std::int16_t>(row.key)).ok());
            if (Below(2) == 0) {
                row.text = RandomText();
                ASSERT_TRUE(set_->Set("Text", row.text).ok());
            }
            ASSERT_TRUE(set_->MoveNext().ok());
        }
    }

    // From a random record on, the first of a key.
    void CheckFind() {
        ASSERT_TRUE(set_->SetFilter("").ok());
        if (rows_.empty()) return;
        const int start = Below(static_cast<int>(rows_.size()));
        const int key = Below(13);
        ASSERT_TRUE(set_->MoveFirst().ok());
        for (int i = 0; i < start; ++i)
            ASSERT_TRUE(set_->MoveNext().ok());
        ASSERT_TRUE(set_->Find("Key=" + std::to_string(key)).ok());
        auto expected = rows_.begin() + start;
        while (expected != rows_.end() && expected->key != key)
            ++expected;
        ASSERT_EQ(set_->Eof(), expected == rows_.end());
        if (set_->Eof()) return;
        ASSERT_EQ(CurrentNumber(), expected->number);
    }

    void CheckAll() {
        ASSERT_TRUE(set_->SetFilter("").ok());
        std::vector<int> expected;
        for (const ModelRow& row : rows_)
            expected.push_back(row.number);
        ASSERT_EQ(Numbers(), expected);
    }

    void SaveAndLoad() {
        ASSERT_TRUE(set_->SetFilter("").ok());
        const TemporaryFolder folder;
        ASSERT_TRUE(set_->Save(folder / "set", kPersistAdtg).ok());
        ASSERT_TRUE(set_->Close().ok());
        ASSERT_TRUE(set_->OpenFile(folder / "set").ok());
    }

    std::mt19937 random_;
    std::unique_ptr<RecordSet> set_;
    std::vector<ModelRow> rows_;
    int next_number_ = 1;
};

TEST_P(Model, AgreesAfterEachStep) {
    for (int step = 0; step < 150; ++step) {
        const int kind = Below(20);
        if (kind < 6) {
            ASSERT_TRUE(set_->SetFilter("").ok());
            for (int i = Below(60); i > 0; --i)
                AddRow();
        } else if (kind < 9) {
            CheckFilter();
        } else if (kind < 12) {
            DeleteSome();
        } else if (kind < 15) {
            ChangeSome();
        } else if (kind < 19) {
            CheckFind();
        } else {
            SaveAndLoad();
        }
        if (HasFatalFailure()) return;
        CheckAll();
        if (HasFatalFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, Model, testing::Range(1U, 13U));

}  // namespace
}  // namespace trevix::recordset
