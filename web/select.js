// Gives the "selall" checkbox in the head of each report table its
// behaviour: ticking or clearing it ticks or clears every row checkbox
// ("chk_sel_<n>") of that same table. It lives in its own file because the
// page allows no inline script.
'use strict';

document.addEventListener('DOMContentLoaded', function() {
  document.querySelectorAll('table input[type="checkbox"][id="selall"]')
      .forEach(function(head) {
        var table = head.closest('table');
        head.addEventListener('change', function() {
          table.querySelectorAll('input[type="checkbox"][id^="chk_sel_"]')
              .forEach(function(box) {
                box.checked = head.checked;
              });
        });
      });
});
