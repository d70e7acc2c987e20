/* The entry points of the sheet selection dialog's plug-in,
 * libtabulon_sheet_dialog.so, which the control loads with dlopen the first
 * time ShowSheetSelectionDialog runs. The window needs a widget toolkit and a
 * display; keeping it out of libtabulon.so means that hosts without either
 * (servers, the command line's other commands) never load the toolkit.
 *
 * The interface is plain C: two functions found by name, taking one request
 * structure of UTF-8 texts. Nothing else of the control is visible to the
 * plug-in, and nothing of the plug-in to the control. */
#ifndef TABULON_SRC_SHEETS_SHEET_DIALOG_PLUGIN_H_
#define TABULON_SRC_SHEETS_SHEET_DIALOG_PLUGIN_H_

#ifdef __cplusplus
extern "C" {
#endif

/* Raised whenever the request structure changes; the plug-in refuses any
 * other value. */
#define TABULON_SHEET_DIALOG_INTERFACE 1

/* The plug-in's file name and the folder, beside libtabulon.so, it lives in. */
#define TABULON_SHEET_DIALOG_LIBRARY "libtabulon_sheet_dialog.so"
#define TABULON_PLUGIN_FOLDER "tabulon"

/* Receives a text from the plug-in; `text` is valid during the call only. */
typedef void (*tabulon_text_sink)(void* context, const char* text);

typedef struct tabulon_sheet_dialog_request {
  int interface_version; /* TABULON_SHEET_DIALOG_INTERFACE */
  /* The sheet names, in workbook order. */
  const char* const* sheet_names;
  int sheet_count;
  /* Nonzero: several sheets may be picked (listSheets); zero: one (listSheet). */
  int multiple_select;
  /* The language file's texts for the window, keyed as in the
   * [frmSelectSheet] section of a language file ("cmdSelect.Caption", ...).
   * A key that is not given keeps its built-in English text. */
  const char* const* text_keys;
  const char* const* text_values;
  int text_count;
  /* Called back with the result and with failures. */
  void* context;
  tabulon_text_sink on_selected; /* the selected-sheets text, once, when the window closes */
  tabulon_text_sink on_error;    /* why the window cannot be shown */
} tabulon_sheet_dialog_request;

/* 0 when a window can be shown in this process now (a display, or a
 * platform that needs none); otherwise nonzero and on_error says why. It
 * starts nothing that could end the process. Only `interface_version`,
 * `context` and `on_error` are read. */
typedef int (*tabulon_sheet_dialog_probe_fn)(const tabulon_sheet_dialog_request* request);
#define TABULON_SHEET_DIALOG_PROBE "tabulon_sheet_dialog_probe"

/* Probes, then shows the window modally and returns 0 once it is closed,
 * after calling on_selected with its selected-sheets text ("" on cancel).
 * Nonzero, with on_error, when the window could not be shown. */
typedef int (*tabulon_sheet_dialog_show_fn)(const tabulon_sheet_dialog_request* request);
#define TABULON_SHEET_DIALOG_SHOW "tabulon_sheet_dialog_show"

#ifdef __cplusplus
}
#endif

#endif /* TABULON_SRC_SHEETS_SHEET_DIALOG_PLUGIN_H_ */
