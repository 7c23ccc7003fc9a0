// Shared main window and fixtures of the dialog tests; see GuiSupport.h.
#include "tests/dialogs/GuiSupport.h"

#include "gui/MainFrame.h"
#include "token/acPKCS11.h"

#include "gui/CardList.h"

void PrepareGuiTestProcess() { DialogTests::PrepareEnvironment(); }

namespace DialogTests {

namespace {

MainFrame* g_frame = nullptr;

} // namespace

void CardDialogTest::SetUp() {
    Frame();
    ResetCards();
    SetPinAnswers({});
}

void CardDialogTest::TearDown() { ResetCards(); }

MainFrame* Frame() {
    if (g_frame == nullptr) {
        g_frame = new MainFrame(nullptr);
        g_frame->Show();
        // The start timer begins the first card-list load once events run.
        const bool loaded = PumpUntil(
            [] { return !g_frame->IsRefreshRunning() && g_frame->GetCardList()->GetItemCount() > 0; },
            120);
        if (!loaded) ADD_FAILURE() << "card list did not load";
    }
    return g_frame;
}

Korvex::acPKCS11* Token() { return Frame()->GetP11(); }

bool SelectCard(const Card& card) {
    CardList* list = Frame()->GetCardList();
    for (int row = 0; row < list->GetItemCount(); ++row) {
        if (list->RowText(row, 0) == wxString::FromUTF8(card.serial)) {
            list->ChooseRow(row);
            Pump(20);
            return true;
        }
    }
    return false;
}

std::vector<unsigned char> ReadObject(const Card& card, const std::string& label) {
    std::vector<unsigned char> value;
    Korvex::acPKCS11* token = Token();
    if (token->OpenSession(card.position, false)) {
        token->ReadDataObject(label, value);
        token->CloseSession();
    }
    return value;
}

} // namespace DialogTests
