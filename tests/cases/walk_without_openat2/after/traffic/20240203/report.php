<table class=tabledata  border=1  cellspacing=1 cellpadding=4 align="center" style="font-size:9pt" valign=top >
<tr><td nowrap colspan='9' align='center'><b>Report Table as on 03-02-2024
<tr bgcolor='#AACCDD'>
<th align='left'><input type='checkbox' id='selall'></th>
<th align='left' >Date/Time</th>
<th align='left' >Client</th>
<th align='left' >File</th>
<th align='left' >Result</th>
<th align='left' >Virus/Remark</th>
<th align='left' >Action</th>
<th align='left' >Quarantine</th>
</tr>
<?php include("@ROOT@traffic//20240203/report.txt") ?></table>
