// Gives the "selall" checkbox in the head of each report table its
// behaviour: ticking or clearing it ticks or clears every row checkbox
// ("chk_sel_<n>") of that same table. It lives in its own file because the
// page allows no inline script.
'use strict';

document.addEventListener('DOMContentLoaded', function() {
  var heads = document.querySelectorAll('input[type="checkbox"][id="selall"]');
  heads.forEach(function(head) {
    var table = head.closest('table');
    if (!table) {
      return;
    }
    head.addEventListener('change', function() {
      var rows =
          table.querySelectorAll('input[type="checkbox"][id^="chk_sel_"]');
      rows.forEach(function(box) {
        // A table nested in a cell (markup from a name) keeps its own boxes.
        if (box.closest('table') === table) {
          box.checked = head.checked;
        }
      });
    });
  });
});
