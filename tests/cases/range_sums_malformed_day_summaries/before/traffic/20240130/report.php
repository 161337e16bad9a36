<p>30 January</p>
