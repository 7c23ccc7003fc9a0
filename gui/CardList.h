// The card list: a native list view (a tree view on GTK, which screen readers
// can read) with one row per card. Rows carry the card type as item data, a
// chip image, an optional background colour and their own tooltip, which
// shows only while the pointer is over that row.
#pragma once

#include <wx/dataview.h>
#include <wx/bmpbndl.h>

#include <vector>

class CardList : public wxDataViewListCtrl {
public:
    CardList(wxWindow* parent, wxWindowID id);

    // Columns are text; the first also shows the row's image.
    void AddColumn(const wxString& title, int width);
    // Rows name their image by its index here; bundles, so that a scaled
    // display gets pictures drawn for it rather than enlarged.
    void SetImages(std::vector<wxBitmapBundle> images);

    struct Row {
        std::vector<wxString> texts; // one per column
        int image = -1;
        int data = 0;                // item data (the card type)
        wxColour background;         // invalid: the default
        wxString toolTip;            // empty: none
    };
    // Inserts before `row` (at the end when past it) and returns its index.
    int InsertRow(int row, const Row& contents);
    void DeleteAllRows();

    wxString RowText(int row, int column) const;
    int RowData(int row) const;
    int RowImage(int row) const;
    void SetRowImage(int row, int image);
    // The row's picture as the list draws it at its display's scale.
    wxBitmap RowBitmap(int row) const;
    wxColour RowBackground(int row) const;
    wxString RowToolTip(int row) const;
    // The row at a point of the list (its own coordinates); -1 when none.
    int RowAt(const wxPoint& point) const;

    // Selects a row as a click does: the selection event follows.
    void ChooseRow(int row);

    // The tooltip for the pointer at `point` (list coordinates): that row's
    // text, or none where there is no row.
    void ShowToolTipAt(const wxPoint& point);

private:
    class Store;
    wxBitmapBundle Image(int image) const;
    Store* m_Store = nullptr;
    std::vector<wxBitmapBundle> m_Images;
    std::vector<int> m_ImageOfRow;
    std::vector<wxString> m_ToolTips;
    int m_ToolTipRow = -1;
};
